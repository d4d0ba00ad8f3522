#include "host/session/absence.h"

#include <optional>

#include "host/base/text.h"

namespace camhost {

namespace {

// As the listing writes them. The plug-in has its own: what judges it takes no constant from it.
constexpr const char* kVendor = "Vendor=114d";
constexpr const char* kBootCode = "2065";
constexpr const char* kRunning = "2066";

/// Product ID of the camera in the listing; nothing when there is none of its vendor.
std::optional<std::string> product_in(std::istream& listing) {
    const std::string mark = "ProdID=";
    for (std::string line; std::getline(listing, line);) {
        const size_t product = line.find(mark);
        if (line.find(kVendor) != std::string::npos && product != std::string::npos) {
            return line.substr(product + mark.size(), 4);
        }
    }
    return std::nullopt;
}

std::string without_download(const std::optional<std::string>& product) {
    if (!product) {
        return "no camera is on the bus";
    }
    if (*product == kBootCode) {
        return "it is on the bus in its boot code and was sent no firmware";
    }
    return *product == kRunning ? "it is on the bus and cannot be used"
                                : "it is on the bus with the unknown product ID 0x" + *product;
}

std::string after_download(const std::optional<std::string>& product) {
    if (!product) {
        return "it went off the bus after its firmware and did not come back";
    }
    if (*product == kBootCode) {
        return "after its firmware it is in its boot code again: nothing was burnt";
    }
    return *product == kRunning ? "it is back after its firmware and cannot be used"
                                : "it is back after its firmware with the product ID 0x" +
                                      *product + ", not 0x" + kRunning;
}

}  // namespace

std::string absence(const FirmwareDownload& download, std::istream& listing) {
    if (!listing) {
        return {};
    }
    if (download.sent > 0 && download.sent < download.size) {
        return format("the download of its firmware broke off after %llu of %llu bytes",
                      static_cast<unsigned long long>(download.sent),
                      static_cast<unsigned long long>(download.size));
    }
    const auto product = product_in(listing);
    return download.sent == 0 ? without_download(product) : after_download(product);
}

}  // namespace camhost
