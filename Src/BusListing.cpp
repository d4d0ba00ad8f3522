#include "BusListing.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/time.h>

#include "CameraIdentity.h"
#include "FileContent.h"
#include "aitdbg.h"
#include "aitshell.h"
#include "ptasking.h"

bool m_bAITCAM = false;

namespace {

constexpr char kListing[] = "/proc/bus/usb/devices";
constexpr char kListingCopy[] = "/dtv/ait_usb_devices";
constexpr size_t kLineSize = 256 + 2;  // with the line end and the terminator
constexpr int kFirstProductId = 0x205C;
constexpr int kLastProductId = 0x206F;
constexpr int kColourRed = 31;

enum { BITMASK_PID = 1, BITMASK_VID = 2, BITMASK_PORT = 4 };
constexpr unsigned int kBitmaskComplete = BITMASK_PID | BITMASK_VID | BITMASK_PORT;

pMutex g_ListingLock;  // guards what follows, and the search: its copy has one name
long m_AccessTime = 0;
long m_LogSize = 0;
unsigned int g_ListingsSeen = 0;
int g_ProductSeen = 0;  // in the last of them

/// What is known of the device block that is being read.
struct DeviceBlock {
    int vendor = 0;
    int product = 0;
    int port = 0;  // survives the blank line between blocks; its bit does not
    unsigned int nBitmask = 0;
    bool bSkip = false;

    void NextBlock() {
        vendor = 0;
        product = 0;
        nBitmask = 0;
        bSkip = false;
    }

    void TakeLine(char* line) {
        if (strncmp(line, "P:", 2) == 0) {
            TakeNumber(line, "Vendor=", 4, BITMASK_VID, &vendor);
            TakeNumber(line, "ProdID=", 4, BITMASK_PID, &product);
        } else if (strncmp(line, "T:", 2) == 0) {
            // Hexadecimal although the listing prints the port in decimal; kept so, as the number
            // is only logged.
            TakeNumber(line, "Port=", 2, BITMASK_PORT, &port);
        }
    }

  private:
    void TakeNumber(char* line, const char* pattern, int digits, unsigned int bit, int* number) {
        char text[8] = {};
        if (GetCamString(text, line, pattern, digits)) {
            *number = static_cast<int>(strtol(text, nullptr, 16));
            nBitmask |= bit;
        }
    }
};

FilePtr OpenListing() {
    AIT_LOG_AS("t_SearchAITUsbCamera");
    FilePtr file = OpenFile(kListingCopy);
    if (file != nullptr) {
        return file;
    }
    AIT_LOG(1, "cannot open %s file\n", kListingCopy);
    file = OpenFile(kListing);
    if (file == nullptr) {
        AIT_LOG(1, "cannot open %s file\n", kListing);
    }
    return file;
}

void LogFoundCamera() {
    AIT_LOG_AS("t_SearchAITUsbCamera");
    timeval now;
    gettimeofday(&now, nullptr);
    AIT_LOG(3, "\033[02;%dm[%d.%06d]\033[0m TV camera found", kColourRed,
            static_cast<int>(now.tv_sec), static_cast<int>(now.tv_usec));
}

int FindCamera(FILE* listing) {
    AIT_LOG_AS("t_SearchAITUsbCamera");
    DeviceBlock block;
    char line[kLineSize];
    while (fgets(line, sizeof line, listing) != nullptr) {
        if (strlen(line) == 1) {
            block.NextBlock();
            continue;
        }
        if (block.bSkip) {
            continue;
        }
        block.TakeLine(line);
        if (block.nBitmask != kBitmaskComplete) {
            continue;
        }
        AIT_LOG(4, "found usb device vid[0x%x], pid[0x%x], port number[%d]\n",
                static_cast<unsigned int>(block.vendor), static_cast<unsigned int>(block.product),
                block.port);
        if (IsAITCamera(block.vendor, block.product)) {
            LogFoundCamera();
            return block.product;
        }
        block.bSkip = true;
    }
    return 0;
}

/// Whether there is something at `path`, a link itself included, that is no regular file.
bool IsNoRegularFile(const char* path) {
    struct stat status;
    return lstat(path, &status) == 0 && !S_ISREG(status.st_mode);
}

/// Copies the listing and searches the copy. Neither name may be a FIFO: cp would wait for good.
int ReadListing() {
    char command[256];
    if (IsNoRegularFile(kListingCopy)) {
        snprintf(command, sizeof command, "rm -rf %s", kListingCopy);
        AITCAM_ExecuteShell(command);
    }
    if (OpenFile(kListing) != nullptr) {
        snprintf(command, sizeof command, "cp -f %s %s; sync", kListing, kListingCopy);
        AITCAM_ExecuteShell(command);
    }
    FilePtr listing = OpenListing();
    if (listing == nullptr) {
        return 0;
    }
    const int product = FindCamera(listing.get());
    listing.reset();
    snprintf(command, sizeof command, "rm -f %s; sync", kListingCopy);
    AITCAM_ExecuteShell(command);
    return product;
}

}  // namespace

bool IsAITCamera(int vid, int pid) {
    if (vid != kCameraVendorId || pid < kFirstProductId || pid > kLastProductId) {
        return false;
    }
    m_bAITCAM = pid == 0x205D || pid == 0x2062;
    return true;
}

bool IsProcDeviceChanged() {
    pMutexLock lock(g_ListingLock);
    struct stat status;
    if (stat(kListing, &status) == 0) {
        const long time = status.st_ctime;  // of status change, whatever the log calls it
        const long size = status.st_size;
        AIT_LOG(4, "Access Time (Sec.) : %ld/%ld\t LogSize : %ld/%ld\t(Current/Previous)", time,
                m_AccessTime, size, m_LogSize);
        if (time == m_AccessTime && size == m_LogSize) {
            return false;
        }
        m_AccessTime = time;
        m_LogSize = size;
    } else if (errno == ENOENT) {
        AIT_LOG(3, "errno(ENOENT) - %s does not exist!!!", kListing);
        m_LogSize = 0;
        return false;
    } else if (m_LogSize == 0) {
        m_LogSize = -1;
    }
    AIT_LOG(4, "/proc/bus/usb/devices is changed!");
    return true;
}

bool GetCamString(char* dest, char* source, const char* pattern, int size) {
    const char* found = strstr(source, pattern);
    if (found == nullptr || size < 1) {
        return false;
    }
    found += strlen(pattern);
    memcpy(dest, found, strnlen(found, static_cast<size_t>(size)));
    return true;
}

int t_SearchAITUsbCamera() {
    unsigned int seen = ListingsSeen();
    return t_SearchAITUsbCamera(&seen);
}

unsigned int ListingsSeen() {
    pMutexLock lock(g_ListingLock);
    return g_ListingsSeen;
}

int t_SearchAITUsbCamera(unsigned int* seen) {
    pMutexLock lock(g_ListingLock);
    if (IsProcDeviceChanged()) {
        g_ProductSeen = ReadListing();
        ++g_ListingsSeen;
    } else if (*seen == g_ListingsSeen) {
        return 0;
    }
    *seen = g_ListingsSeen;
    return g_ProductSeen;
}
