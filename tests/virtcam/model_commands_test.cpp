// The table of the camera's own commands: each row is reached, named, shown in the status and
// documented.
#include <gtest/gtest.h>

#include <array>
#include <fstream>
#include <regex>
#include <set>
#include <sstream>

#include "model_fixture.h"
#include "virtcam/model/commands.h"
#include "virtcam/model/describe.h"
#include "virtcam/model/usb.h"

namespace virtcam::model::test {
namespace {

size_t length_of(uint8_t selector) {
    return usb::extension_block(selector)->length;
}

/// The smallest block that a row takes.
Bytes block_of(const Command& command) {
    Bytes block(length_of(command.selector), 0);
    for (size_t i = 0; i < command.head.length; ++i) {
        block[i] = static_cast<uint8_t>(command.head.bytes[i]);
    }
    return block;
}

TEST(CommandTable, NoRowHidesAnother) {
    for (const Command& command : commands()) {
        EXPECT_EQ(find_command(command.selector, block_of(command)), &command) << command.text;
    }
    std::set<std::pair<uint8_t, bool>> requests;
    for (const VendorRequest& request : vendor_requests()) {
        EXPECT_TRUE(requests.emplace(request.request, request.device_to_host).second)
            << int{request.request};
    }
}

/// Sends all blocks that begin with `first` and a spread of second and third bytes; counts those
/// that traces call unknown.
int sweep(Host& host, uint8_t selector, uint8_t first) {
    int unknown = 0;
    Bytes block(length_of(selector), 0);
    block[0] = first;
    for (const int second : {0, 1, 2, 3, 4, 5, 8, 9, 10, 11, 12, 13, 20, 0x14, 0x7F, 0xFF}) {
        block[1] = static_cast<uint8_t>(second);
        for (const int third : {0, 1, 3, 5, 6, 9, 10, 0x14, 0xFF}) {
            block[2] = static_cast<uint8_t>(third);
            const Setup setup{0x20, 0x01, static_cast<uint16_t>(selector << 8), 0x0600,
                              static_cast<uint16_t>(block.size())};
            const bool named = describe(setup, block).find("unknown") == std::string::npos;
            EXPECT_TRUE(named || host.camera.control(setup, block).stall) << describe(setup, block);
            unknown += named ? 0 : 1;
        }
    }
    return unknown;
}

TEST(CommandTable, OnlyWhatStallsIsUnknown) {
    for (const uint8_t selector : {1, 4, 14}) {
        Host host(running_camera());
        int unknown = 0;
        for (int first = 0; first < 256; ++first) {
            unknown += sweep(host, selector, static_cast<uint8_t>(first));
        }
        EXPECT_GT(unknown, 0);
    }
}

/// Members of the status that a row shows: those of "settings", and those beside it.
std::set<std::string> shown_by(const Command& command) {
    std::set<std::string> members;
    if (command.shown == nullptr) {
        return members;
    }
    nlohmann::json status = nlohmann::json::object();
    command.shown(Settings{}, status);
    for (const auto& [name, value] : status.items()) {
        if (name != "settings") {
            members.insert(name);
            continue;
        }
        for (const auto& [setting, shown] : value.items()) {
            members.insert(setting);
        }
    }
    return members;
}

TEST(CommandTable, ShowsInTheStatusWhatACommandSets) {
    Host host(running_camera());
    const nlohmann::json before = host.camera.status();
    std::set<std::string> shown;
    for (const Command& command : commands()) {
        for (const std::string& member : shown_by(command)) {
            EXPECT_TRUE(before.contains(member) || before["settings"].contains(member)) << member;
            shown.insert(member);
        }
    }
    for (const auto& [name, value] : before["settings"].items()) {
        EXPECT_EQ(shown.count(name), 1U) << name << " belongs to no command";
    }
}

// --- the page for people -----------------------------------------------------------------------

using Row = std::vector<std::string>;

std::string trimmed(const std::string& text) {
    const size_t first = text.find_first_not_of(" `");
    const size_t last = text.find_last_not_of(" `");
    return first == std::string::npos ? "" : text.substr(first, last - first + 1);
}

/// Rows of the table of docs/vendor-commands.md whose first column is called `heading`.
std::vector<Row> documented(const std::string& heading, size_t columns) {
    std::ifstream page(COMMAND_PAGE);
    EXPECT_TRUE(page) << COMMAND_PAGE;
    std::vector<Row> rows;
    bool inside = false;
    for (std::string line; std::getline(page, line);) {
        std::istringstream cells(line);
        Row row;
        std::string cell;
        std::getline(cells, cell, '|');
        while (std::getline(cells, cell, '|')) {
            row.push_back(trimmed(cell));
        }
        const bool begins = row.size() == columns && row[0] == heading;
        inside = begins || (inside && row.size() == columns);
        if (inside && !begins && row[0].find("---") == std::string::npos) {
            rows.push_back(row);
        }
    }
    return rows;
}

std::string or_dash(const std::string& text) {
    return text.empty() ? "–" : text;
}

Row row_of(const Command& command) {
    std::string status;
    for (const std::string& member : shown_by(command)) {
        status += (status.empty() ? "" : " ") + member;
    }
    const std::string group = usb::extension_block(command.selector)->group;
    return {group.empty() ? "data" : group,
            layout(command.head, command.fields),
            std::string(command.text),
            or_dash(layout({}, {command.reply})),
            or_dash(status),
            command.known == Known::kAlways ? "all" : "camera"};
}

Row row_of(const VendorRequest& request) {
    const std::string data = request.length == 0 ? "none"
                                                 : (request.device_to_host ? "in " : "out ") +
                                                       std::to_string(request.length);
    return {std::to_string(request.request), data, layout({}, request.fields),
            std::string(request.text),
            request.known == Known::kBulkDownload ? "boot code" : "camera"};
}

/// Holds the page's rows against the table's, in order. The last three cells are not the table's:
/// the plug-in's name, and for people who sends it and what it does.
template <typename Rows>
void compare(const Rows& table, const std::vector<Row>& page) {
    std::vector<Row> told;
    for (const Row& row : page) {
        EXPECT_FALSE(row[row.size() - 2].empty()) << row[0] << " " << row[1];
        EXPECT_FALSE(row.back().empty()) << row[0] << " " << row[1];
        told.emplace_back(row.begin(), row.end() - 3);
    }
    std::vector<Row> expected;
    for (const auto& row : table) {
        expected.push_back(row_of(row));
    }
    for (const Row& row : expected) {
        EXPECT_EQ(std::count(told.begin(), told.end(), row), 1)
            << "not on the page: " << testing::PrintToString(row);
    }
    for (const Row& row : told) {
        EXPECT_EQ(std::count(expected.begin(), expected.end(), row), 1)
            << "only on the page: " << testing::PrintToString(row);
    }
    EXPECT_EQ(told, expected) << "order";
}

TEST(CommandPage, HasTheRowsOfTheTable) {
    compare(commands(), documented("group", 9));
}

TEST(CommandPage, HasTheVendorRequests) {
    compare(vendor_requests(), documented("request", 8));
}

/// Names of the commands and requests in the plug-in's own table.
std::set<std::string> names_in_the_plug_in() {
    std::ifstream header(PLUG_IN_COMMANDS);
    EXPECT_TRUE(header) << PLUG_IN_COMMANDS;
    const std::regex command(R"(constexpr Command (k\w+) =)");
    const std::regex request(R"(^ *(k\w+) = \d+,)");
    std::set<std::string> names{"kFirmwareData"};
    bool requests = false;
    for (std::string line; std::getline(header, line);) {
        requests = requests || line.find("enum Request") != std::string::npos;
        std::smatch found;
        if (std::regex_search(line, found, requests ? request : command)) {
            names.insert(found[1]);
        }
    }
    return names;
}

TEST(CommandPage, HasThePlugInsNames) {
    std::set<std::string> told;
    for (const auto& rows : {documented("group", 9), documented("request", 8)}) {
        for (const Row& row : rows) {
            told.insert(row[row.size() - 3]);
        }
    }
    EXPECT_EQ(told, names_in_the_plug_in());
}

TEST(CommandPage, HasTheBlocksOfTheUnit) {
    std::vector<Row> expected;
    for (const usb::ExtensionBlock& block : usb::kExtensionBlocks) {
        if (!block.result) {
            const std::string group = block.group;
            expected.push_back({group.empty() ? "data" : group, std::to_string(block.selector),
                                block.answers == 0 ? "–" : std::to_string(block.answers),
                                std::to_string(block.length)});
        }
    }
    std::vector<Row> told = documented("group", 4);
    std::sort(told.begin(), told.end());
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(told, expected);
}

}  // namespace
}  // namespace virtcam::model::test
