#include "CameraFwLoader.h"

#include <locale.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <new>
#include <string>

#include "AitFirmware.h"
#include "AitXu.h"
#include "BusListing.h"
#include "CamDestroyFlag.h"
#include "CameraIdentity.h"
#include "FileContent.h"
#include "LibusbWrap.h"
#include "LittleEndian.h"
#include "VendorCommands.h"
#include "aitdbg.h"

#define DOWNLOAD_FOLDER "/mtd_rwcommon/lumo/bin"

char fw_path_name[256] = DOWNLOAD_FOLDER "/Tarlo_Ext_FW.bin";
char exe_fw_path_name[256] = "/mtd_exe/lumo/Tarlo_Ext_FW.bin";
char boot_path_name[256] = DOWNLOAD_FOLDER "/VespinPlus_BC.bin";
char exe_boot_path_name[256] = "/mtd_exe/lumo/VespinPlus_BC.bin";

namespace {

constexpr char kDownloadedVersionFile[] = DOWNLOAD_FOLDER "/opxCamera.xml";
constexpr char kDefaultVersionFile[] = "/mtd_exe/lumo/opxCamera.xml";
constexpr char kVersionRecord[] = "/dtv/cm_cam_version";

constexpr unsigned int kPauseSeconds = 1;
constexpr int kOpenRetries = 5;
constexpr int kScans = 17;
constexpr int kForgivenTimeouts = 6;
constexpr int kResultTimeoutMs = 5000;
constexpr useconds_t kSettleUs = 300000;
constexpr unsigned int kFirmwareChip = 4;
constexpr unsigned int kBootCodeChip = 1;
/// The middle field of the version record, whatever the camera reports.
constexpr unsigned int kVersionMiddle = 0x45;

constexpr size_t kVersionBytes = 6;

constexpr long kBootVersionOffset = 0x2032;
constexpr uint32_t kBootVersionMask = 0xFFFFF;
constexpr uint32_t kBootMark = 0xFAC00000;
constexpr unsigned int kBeforeBootUpdateSeconds = 3;

thread_local const CCameraFwLoader* g_pRunningLoader = nullptr;

/// The text of the <Version> element; false when the closing tag is missing. A missing opening tag
/// is deliberately not detected: the search result plus 9 is used as it comes, and wraps to 8.
bool FindVersion(const std::string& xml, std::string* version) {
    const size_t start = xml.find("<Version>") + 9;
    const size_t end = xml.find("</Version>");
    if (end == std::string::npos) {
        return false;
    }
    version->clear();
    if (start <= xml.size()) {
        *version = end >= start ? xml.substr(start, end - start) : xml.substr(start);
    }
    return true;
}

/// The number that a text begins with, with a point whatever locale the host has set.
double Number(const std::string& text) {
    const locale_t plain = newlocale(LC_ALL_MASK, "C", nullptr);
    if (plain == nullptr) {
        throw std::bad_alloc();
    }
    const double number = strtod_l(text.c_str(), nullptr, plain);
    freelocale(plain);
    return number;
}

/// Throws std::bad_alloc.
bool ShippedIsNewer() {
    AIT_LOG_AS("UseDefaultVersion");
    const FilePtr downloaded = OpenFile(kDownloadedVersionFile);
    const FilePtr shipped = OpenFile(kDefaultVersionFile);
    if (shipped == nullptr) {
        AIT_LOG(1, "use /mtd_down/lumo/bin\n");
        return false;
    }
    if (downloaded == nullptr) {
        AIT_LOG(1, "no version file in %s, start update\n", kDownloadedVersionFile);
        AIT_LOG(1, "use /mtd_exe/lumo/\n");
        return true;
    }
    if (FileSize(downloaded.get()) < 0 || FileSize(shipped.get()) < 0) {
        AIT_LOG(1, "fail to parse opxCamera.xml, use /mtd_down/lumo/bin\n");
        return false;
    }
    const std::string shippedText = ReadText(shipped.get());
    const std::string downloadedText = ReadText(downloaded.get());
    if (shippedText.empty()) {
        return false;
    }
    AIT_LOG(4, "opxVersion Version XML String length=%d \n",
            static_cast<int>(downloadedText.size()));
    std::string shippedVersion;
    if (!FindVersion(shippedText, &shippedVersion)) {
        AIT_LOG(1, "%s: default camera dir has invalid version info.\n", "UseDefaultVersion");
        return false;
    }
    std::string downloadedVersion;
    if (!FindVersion(downloadedText, &downloadedVersion)) {
        AIT_LOG(1, "opx version in /mtd_down/lumo/bin has invalid version \n");
        return true;
    }
    AIT_LOG(4, "defaultVersion version : %s \n", shippedVersion.c_str());
    AIT_LOG(4, "opxVersion version : %s \n", downloadedVersion.c_str());
    if (Number(shippedVersion) > Number(downloadedVersion)) {
        AIT_LOG(1, "default driver version is newer than opx version \n");
        return true;
    }
    AIT_LOG(4, "opx driver version is newer than default driver version \n");
    return false;
}

}  // namespace

CCameraFwLoader::CCameraFwLoader(uint16_t pid, uint16_t vid, uint16_t interface,
                                 ICameraSubject* subject)
    : pThread(false, -1),
      m_Pid(pid),
      m_Vid(vid),
      m_interface_id(interface),
      camera_subject(subject) {}

CCameraFwLoader::~CCameraFwLoader() {
    Stop();
    CloseDevice();
}

bool CCameraFwLoader::OnLoaderThread() {
    return g_pRunningLoader != nullptr;
}

bool CCameraFwLoader::OnStoppingLoaderThread() {
    return g_pRunningLoader != nullptr && g_pRunningLoader->Shutdown;
}

void CCameraFwLoader::SetInitDoneCallback(AitCamInitDoneCallback callback, void* data) {
    fpInitDoneCb = callback;
    pCamInitDoneCbData = data;
}

void CCameraFwLoader::Run() {
    g_pRunningLoader = this;
    m_pPredecessor.reset();
    AIT_LOG(4, "CCameraFwLoader::Run()\r\n");
    m_nListingSeen = ListingsSeen();
    bool bulkPath = true;
    Step step = FindBootCode(&bulkPath);
    if (step == Step::kContinue && ait_handle != nullptr) {
        step = LoadFirmware(bulkPath);
    }
    if (step == Step::kContinue) {
        step = AwaitRunTimeCamera();
    }
    if (step == Step::kEnd) {
        CloseDevice();
        return;
    }
    RecordVersion();
    if (MayReport()) {
        AIT_LOG(4, "Camera firmware ready. change status to CAMERA_STATUS_OK.\r\n");
        fpInitDoneCb(CAMERA_STATUS_OK, pCamInitDoneCbData);
    }
    Monitor();
    AIT_LOG(4, "Exit device mointer trhead.\r\n");
    CloseDevice();
}

/// Opens the camera in its boot-code identity, by the newer boot code's interface or else by the
/// older one's, which only takes the extension-unit path. Goes on without a device when the camera
/// already runs its firmware.
CCameraFwLoader::Step CCameraFwLoader::FindBootCode(bool* bulkPath) {
    AIT_LOG_AS("Run");
    AIT_LOG(4, "CCameraFwLoader::Run() Open device VID=0x%X, PID=0x%X, Interface=%d \r\n", m_Vid,
            m_Pid, m_interface_id);
    AdoptDevice(OpenAitDevice(m_Vid, m_Pid, m_interface_id));
    for (int i = 0; i < kOpenRetries && ait_handle == nullptr; ++i) {
        if (!Pause()) {
            return Step::kEnd;
        }
        AdoptDevice(OpenAitDevice(m_Vid, m_Pid, 0));
        if (ait_handle != nullptr) {
            *bulkPath = false;
            AIT_LOG(4, "Current boot code is using UVC interface.\r\n");
        }
    }
    AIT_LOG(4, "Exit OpenAitDevice. \r\n");
    if (ait_handle != nullptr) {
        return Step::kContinue;
    }
    if (CheckDeviceExist(m_Vid, kRunTimeProductId)) {
        AIT_LOG(4,
                "!!!!!!!!!!!! CCameraFwLoader:: Found a device with CAMERA vid/pid. "
                "!!!!!!!!!!!!!\r\n");
        return Step::kContinue;
    }
    AIT_LOG(1, "CCameraFwLoader: Libusb failed to open AIT device.\r\n");
    return Report(CAMERA_CANT_FOUND_DEVICE);
}

CCameraFwLoader::Step CCameraFwLoader::LoadFirmware(bool bulkPath) {
    AIT_LOG_AS("Run");
    unsigned char version[kVersionBytes] = {};
    if (AitXU_GetFWVersion(ait_handle, version) == 0) {
        AIT_LOG(1, "BootCode version is 0x%X\r\n",
                (static_cast<unsigned int>(version[0]) << 24) | (version[1] << 16) |
                    (version[2] << 8) | version[3]);
    }
    AIT_LOG(4, "use_pcsync is %d\n", bulkPath ? 1 : 0);
    char path[256];
    if (UseDefaultVersion()) {
        AIT_LOG(1, "FW file[%s] does not exist\n", fw_path_name);
        snprintf(path, sizeof path, "%s", exe_fw_path_name);
    } else {
        snprintf(path, sizeof path, "%s", fw_path_name);
    }
    AIT_LOG(4, "FW file is [%s]\n", path);
    int result;
    if (bulkPath) {
        AIT_LOG(4, "Enter UpdateFirmwarePcsyncPath. \r\n");
        result = UpdateFirmwarePcsyncPath(ait_handle, path, kFirmwareChip, &Shutdown);
    } else {
        AIT_LOG(4, "Enter UpdateFirmwareUvcPath. \r\n");
        result = UpdateFirmwareUvcPath(ait_handle, path, kFirmwareChip, &Shutdown);
    }
    if (result != 0) {
        Report(CAMERA_LOAD_FW_FAILED);
        AIT_LOG(1, "CCameraFwLoader :Failed to load firmware, exit. \r\n");
        return Step::kEnd;
    }
    AIT_LOG(4, "Exit UpdateFirmwareUvcPath. \r\n");
    CloseDevice();
    return Step::kContinue;
}

/// Waits for the run-time identity in the bus listing and opens it, without claiming an interface:
/// those belong to the streaming engines.
CCameraFwLoader::Step CCameraFwLoader::AwaitRunTimeCamera() {
    AIT_LOG_AS("Run");
    if (!Pause()) {
        return Step::kEnd;
    }
    for (int scan = 1; t_SearchAITUsbCamera(&m_nListingSeen) == 0; ++scan) {
        if (scan == kScans) {
            Report(CAMERA_LOAD_FW_FAILED);
            AIT_LOG(1, "Camera reboot failed. \r\n");
            return Step::kEnd;
        }
        if (!Pause()) {
            return Step::kEnd;
        }
    }
    AdoptDevice(OpenAitDevice(kCameraVendorId, kRunTimeProductId, kNoInterface));
    if (ait_handle == nullptr && !IsCamDestroy()) {
        Report(CAMERA_CANT_FOUND_DEVICE);
        AIT_LOG(1, "CCameraFwLoader: Failed to open camera device. exit \r\n");
        return Step::kEnd;
    }
    return Step::kContinue;
}

/// Writes the version for the television's other programs.
void CCameraFwLoader::RecordVersion() {
    AIT_LOG_AS("Run");
    unsigned char version[kVersionBytes] = {};
    AitXU_GetFWVersion(ait_handle, version);
    const unsigned int first = version[0] * 256u + version[1];
    const unsigned int last = version[4] * 256u + version[5];
    AIT_LOG(1, "Camera-Version:%x.%02x.%02x", first, kVersionMiddle, last);
    const FilePtr file(fopen(kVersionRecord, "w+t"));
    if (file != nullptr) {
        fprintf(file.get(), "%x.%02x.%02x", first, kVersionMiddle, last);
    } else {
        AIT_LOG(1, "Can't open file. /dtv/cm_cam_version!!!\r\n");
    }
    // The choice is asked for once more, as log readers expect; boot code is not flashed here.
    UseDefaultVersion();
}

void CCameraFwLoader::Monitor() {
    AIT_LOG_AS("Run");
    int forgiven = 0;  // over the thread's whole life, never reset
    while (!Shutdown) {
        if (ait_handle == nullptr) {
            sleep(kPauseSeconds);
            continue;
        }
        xu::Block answer(xu::kIsp);  // to whatever was asked last: only that it comes counts
        const int result = AitIspCmdGetResult(ait_handle, answer.bytes, kResultTimeoutMs);
        AIT_LOG(5, "CCameraFwLoader ****** : AIT Camera Checking hr=%d\r\n", result);
        if (result == 0) {
            sleep(kPauseSeconds);
        } else if (result == LIBUSB_ERROR_TIMEOUT && forgiven < kForgivenTimeouts) {
            ++forgiven;
        } else {
            HandleDisconnection(result);
            return;
        }
    }
}

void CCameraFwLoader::HandleDisconnection(int error) {
    AIT_LOG_AS("Run");
    AIT_LOG(1, "!!!  AIT Camera Checking :: Camera is disconnected. , hr=%d !!!\r\n", error);
    AIT_LOG(4, "CloseAitDevice +\r\n");
    CloseDevice();
    AIT_LOG(4, "CloseAitDevice -\r\n");
    usleep(kSettleUs);
    camera_subject->StopRecording();
    Report(CAMERA_CANT_FOUND_DEVICE);
}

/// A loader that was asked to stop says nothing more: its answer could reach the host's next
/// callback.
bool CCameraFwLoader::MayReport() const {
    return !Shutdown && !IsCamDestroy();
}

/// Calls the host's side back where it may. Always the last step.
CCameraFwLoader::Step CCameraFwLoader::Report(unsigned int status) {
    if (MayReport()) {
        fpInitDoneCb(status, pCamInitDoneCbData);
    }
    return Step::kEnd;
}

/// One pause of the start-up; false when the thread was asked to stop meanwhile.
bool CCameraFwLoader::Pause() {
    sleep(kPauseSeconds);
    return !Shutdown;
}

void CCameraFwLoader::AdoptDevice(AitDevHandle* device) {
    pMutexLock lock(m_HandleLock);
    ait_handle = device;
}

void CCameraFwLoader::CloseDevice() {
    AitDevHandle* device;
    {
        pMutexLock lock(m_HandleLock);
        device = ait_handle;
        ait_handle = nullptr;
    }
    CloseAitDevice(device);
}

bool CCameraFwLoader::GetCamVersion() {
    pMutexLock lock(m_HandleLock);
    unsigned char version[kVersionBytes] = {};
    if (AitXU_GetFWVersion(ait_handle, version) != 0) {
        AIT_LOG(1, "Get Firmware Version error\r\n");
        return false;
    }
    m_nCameraVer = version[1] * 65536u + version[3] * 256u + version[5];
    if (m_nCameraVer == 0) {
        AIT_LOG(1, "Camera Versins is 0\r\n");
        return false;
    }
    return true;
}

bool CCameraFwLoader::UseDefaultVersion() {
    try {
        return ShippedIsNewer();
    } catch (const std::bad_alloc&) {
        AIT_LOG(1, "No memory for the version files.\r\n");
        return false;
    }
}

// --- not called by the plug-in

int CCameraFwLoader::UpdateBootCode(AitDevHandle*, char* path, unsigned long deviceVersion) {
    const FilePtr file = OpenFile(path);
    if (file == nullptr) {
        AIT_LOG(4, "New firmware file does not found. skip firmware update procdure.\r\n");
        return 0;
    }
    unsigned char bytes[4] = {};
    if (fseek(file.get(), kBootVersionOffset, SEEK_SET) != 0 ||
        fread(bytes, 1, sizeof bytes, file.get()) != sizeof bytes) {
        memset(bytes, 0, sizeof bytes);  // too short to carry the mark
    }
    const uint32_t code = GetLe32(bytes);
    AIT_LOG(4, "FwVerCode=0x%X\r\n", code);
    if ((code & ~kBootVersionMask) != kBootMark) {
        AIT_LOG(4, "Boot code binary incorrect. skip update procedure.\r\n");
        return AIT_ERR_DEVICE;
    }
    const uint32_t version = code & kBootVersionMask;
    AIT_LOG(4, "Bootcode file path is: %s\r\n", path);
    AIT_LOG(4, "Found a new bootcode binary. binary version is 0x%X, device version is 0x%X\r\n",
            version, static_cast<unsigned int>(deviceVersion));
    if (deviceVersion >= version) {
        return 0;
    }
    AIT_LOG(4, "Start to update bootcode. New version is 0x%X.\r\n", version);
    sleep(kBeforeBootUpdateSeconds);
    const int result = UpdateFirmwareUvcPath(ait_handle, path, kBootCodeChip);
    if (result != 0) {
        AIT_LOG(1, "CCameraFwLoader :Failed to load firmware, exit. \r\n");
    }
    AIT_LOG(4, "Boot code update done.\r\n");
    return result;
}
