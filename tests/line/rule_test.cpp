// Where each member of a rule may stand: the page, the table in the code, and what the parser takes.
#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "virtcam/faults/member.h"
#include "virtcam/faults/rule.h"

namespace virtcam::line::test {
namespace {

using nlohmann::json;
using virtcam::faults::Rule;

/// Cells of the rows "| `member` | for | effect |" of the page on the virtual bus, "Faults".
std::vector<std::pair<std::string, std::string>> documented_members() {
    std::ifstream page(VIRTUAL_BUS_PAGE);
    std::vector<std::pair<std::string, std::string>> rows;
    bool in_table = false;
    for (std::string line; std::getline(page, line);) {
        if (line.rfind("| member | for |", 0) == 0) {
            in_table = true;
        } else if (in_table && line.rfind("| `", 0) == 0) {
            const size_t first = line.find(" | ");
            const size_t second = line.find(" | ", first + 3);
            std::string names = line.substr(2, first - 2);
            const std::string what_for = line.substr(first + 3, second - first - 3);
            std::erase(names, '`');
            for (size_t comma = names.find(", "); comma != std::string::npos;
                 comma = names.find(", ")) {
                rows.emplace_back(names.substr(0, comma), what_for);
                names.erase(0, comma + 2);
            }
            rows.emplace_back(names, what_for);
        } else if (in_table && line.rfind("|---", 0) != 0) {
            break;
        }
    }
    return rows;
}

TEST(RuleMembers, PageHasThemAsTheCodeHasThem) {
    std::vector<std::pair<std::string, std::string>> expected;
    for (const auto& member : virtcam::faults::members()) {
        expected.emplace_back(member.name, member.what_for);
    }
    EXPECT_EQ(documented_members(), expected);
}

json example(const std::string& member) {
    const std::map<std::string, json> examples{
        {"return", -1},
        {"status", "error"},
        {"short", 1},
        {"actual_length", 1},
        {"reply", "00"},
        {"late_ms", 1},
        {"timeout", "wait"},
        {"corrupt", json::object({{"offset", 1}})},
        {"packets", json::array()},
        {"header", json::object({{"length", 13}, {"frame_id", "toggle"}})},
        {"overwrite", json::object({{"offset", 1}, {"bytes", "00"}})},
        {"append", 5},
        {"fields", json::object({{"sequence", 0}, {"time_stamp", {{"add", -90}}}})},
    };
    const auto found = examples.find(member);
    return found == examples.end() ? json(true) : found->second;
}

struct Point {
    const char* name;
    const char* on;
    std::vector<std::string> members;  ///< presence aside
};

const std::vector<Point>& points() {
    static const std::vector<std::string> kControlIn{
        "return", "stall",   "status",  "short",   "actual_length",
        "reply",  "late_ms", "timeout", "corrupt", "overwrite"};
    static const std::vector<std::string> kControlOut{"return",        "stall",   "status", "short",
                                                      "actual_length", "late_ms", "timeout"};
    static const std::vector<std::string> kIn{
        "stall",   "status", "short",  "actual_length", "reply",  "late_ms",   "timeout",
        "corrupt", "lose",   "double", "swap",          "header", "overwrite", "append"};
    static const std::vector<std::string> kOut{"stall",         "status",  "short",
                                               "actual_length", "late_ms", "timeout"};
    static const std::vector<std::string> kAny{
        "stall",   "status", "short",  "actual_length", "reply",  "late_ms",   "timeout", "corrupt",
        "packets", "lose",   "double", "swap",          "header", "overwrite", "append"};
    static const std::vector<Point> kPoints{
        {"call", R"({"call": "libusb_claim_interface", "argument": 1})", {"return"}},
        {"pointer", R"({"call": "libusb_alloc_transfer"})", {"null"}},
        {"handle", R"({"call": "libusb_open_device_with_vid_pid"})", {"null"}},
        {"list", R"({"call": "libusb_get_device_list"})", {"return", "null"}},
        {"control", R"({"control": {"request": 6}})", kControlIn},
        {"control_in", R"({"control": {"type": "0xA1"}})", kControlIn},
        {"control_out", R"({"control": {"type": "0x21"}})", kControlOut},
        {"bulk", R"({"transfer": "bulk"})", kIn},
        {"bulk_in", R"({"transfer": "bulk", "endpoint": "0x81"})", kIn},
        {"bulk_out", R"({"transfer": "bulk", "endpoint": 1})", kOut},
        {"interrupt", R"({"transfer": "interrupt"})", kIn},
        {"iso",
         R"({"transfer": "iso"})",
         {"stall", "status", "short", "late_ms", "timeout", "corrupt", "packets"}},
        {"any", R"({"transfer": "any"})", kAny},
        {"any_in", R"({"transfer": "any", "endpoint": "0x82"})", kAny},
        {"any_out", R"({"transfer": "any", "endpoint": 1})", kOut},
        {"frame", R"({"frame": true})", kIn},
        {"sub_stream", R"({"sub_stream": "h264"})", {"fields"}},
        {"time", R"({"time_ms": 5})", {}},
    };
    return kPoints;
}

/// The list of rules that the section on faults begins with.
json documented_example() {
    std::ifstream page(VIRTUAL_BUS_PAGE);
    std::string line;
    while (std::getline(page, line) && line != "## Faults") {
    }
    while (std::getline(page, line) && line != "```json") {
    }
    std::string text;
    while (std::getline(page, line) && line != "```") {
        text += line;
    }
    return json::parse(text);
}

/// What the parser says to it; empty: it takes it.
std::string objection(const json& rule) {
    try {
        Rule::from_json(rule);
        return "";
    } catch (const std::invalid_argument& error) {
        return error.what();
    }
}

TEST(Rule, ExampleOfThePageIsTaken) {
    const json rules = documented_example();
    ASSERT_EQ(rules.size(), 3U);
    for (const json& rule : rules) {
        EXPECT_EQ(objection(rule), "") << rule;
    }
}

TEST(RuleMembers, OnlyWhereTheyCanDoSomething) {
    for (const Point& point : points()) {
        for (const auto& member : virtcam::faults::members()) {
            const std::string name(member.name);
            const bool presence = member.what_for == "all";
            const bool expected = presence || std::find(point.members.begin(), point.members.end(),
                                                        name) != point.members.end();
            const json rule{{"on", json::parse(point.on)}, {"do", {{name, example(name)}}}};
            EXPECT_EQ(objection(rule).empty(), expected) << rule << ' ' << objection(rule);
        }
    }
}

TEST(RuleMembers, RefusalNamesMemberAndPoint) {
    const std::vector<std::pair<const char*, std::string>> cases{
        {R"({"on": {"call": "libusb_open"}, "do": {"corrupt": {}}})",
         "fault rule: \"corrupt\" is not for \"call\" of libusb_open, but for control, transfer: "
         "IN"},
        {R"({"on": {"call": "libusb_open"}, "do": "null"})",
         "fault rule: \"null\" is not for \"call\" of libusb_open, but for call (pointer)"},
        {R"({"on": {"control": {"type": 33}}, "do": {"reply": "00"}})",
         "fault rule: \"reply\" is not for \"control\", OUT, but for control, bulk, interrupt: IN"},
        {R"({"on": {"control": {}}, "do": {"packets": []}})",
         "fault rule: \"packets\" is not for \"control\", but for iso"},
        {R"({"on": {"transfer": "bulk", "endpoint": 1}, "do": {"reply": "00"}})",
         "fault rule: \"reply\" is not for \"transfer\" of kind bulk, OUT, but for control, bulk, "
         "interrupt: IN"},
        {R"({"on": {"transfer": "iso"}, "do": {"return": 0}})",
         "fault rule: \"return\" is not for \"transfer\" of kind iso, but for call (code), "
         "control"},
        {R"({"on": {"frame": true}, "do": {"packets": []}})",
         "fault rule: \"packets\" is not for \"frame\", but for iso"},
        {R"({"on": {"time_ms": 1}, "do": "stall"})",
         "fault rule: \"stall\" is not for \"time_ms\", but for control, transfer"},
    };
    for (const auto& [rule, text] : cases) {
        EXPECT_EQ(objection(json::parse(rule)), text);
    }
}

typedef std::vector<std::pair<const char*, const char*>> Refusals;  // JSON, what is said of it

/// Each text whole: it is all that the author of a rule has to go by.
template <typename MakeRule>
void expect_refusals(const Refusals& cases, MakeRule rule_with) {
    for (const auto& [what, text] : cases) {
        EXPECT_EQ(objection(rule_with(json::parse(what))), std::string("fault rule: ") + text)
            << what;
    }
}

TEST(Rule, RefusalSaysWhatIsWrong) {
    const Refusals cases{
        {R"(5)", "the rule must be an object"},
        {R"({"on": {"frame": true}, "do": "stall", "when": 1})",
         R"(unknown member "when" in the rule)"},
        {R"({"on": {"frame": true}})", R"("on" and "do" are needed)"},
        {R"({"do": "stall"})", R"("on" and "do" are needed)"},
        {R"({"on": {"frame": true}, "do": "stall", "nth": 1, "from": 2})",
         R"("nth" and "from" exclude each other)"},
        {R"({"on": 1, "do": "stall"})", R"("on" must be an object)"},
        {R"({"on": {"cell": 1}, "do": "stall"})", R"(unknown member "cell" in "on")"},
        {R"({"on": {}, "do": "stall"})",
         R"("on" takes exactly one of call, control, transfer, frame, sub_stream, time_ms)"},
        {R"({"on": {"time_ms": 1, "frame": true}, "do": "stall"})",
         R"("on" takes exactly one of call, control, transfer, frame, sub_stream, time_ms)"},
        {R"({"on": {"call": "open"}, "do": "unplug"})",
         R"("call" must be the name of a libusb function)"},
        {R"({"on": {"call": 7}, "do": "unplug"})",
         R"("call" must be the name of a libusb function)"},
        {R"({"on": {"call": "libusb_open", "endpoint": 1}, "do": "unplug"})",
         R"(unknown member "endpoint" in "on" with "call")"},
        {R"({"on": {"control": {}, "argument": 1}, "do": "unplug"})",
         R"(unknown member "argument" in "on" with "control")"},
        {R"({"on": {"control": 1}, "do": "unplug"})", R"("control" must be an object)"},
        {R"({"on": {"control": {"length": 1}}, "do": "unplug"})",
         R"(unknown member "length" in "control")"},
        {R"({"on": {"control": {"type": 256}}, "do": "unplug"})", R"("type" must lie in 0 to 255)"},
        {R"({"on": {"control": {"request": "x"}}, "do": "unplug"})",
         R"("request" is not a number: "x")"},
        {R"({"on": {"control": {"value": "0x100 "}}, "do": "unplug"})",
         R"("value" is not a number: "0x100 ")"},
        {R"({"on": {"control": {"index": []}}, "do": "unplug"})", R"("index" must be a number)"},
        {R"({"on": {"control": {"data": 7}}, "do": "unplug"})",
         R"("data" must be a text of hexadecimal digits)"},
        {R"({"on": {"control": {"data": "012"}}, "do": "unplug"})",
         R"("data" must be a text of pairs of hexadecimal digits)"},
        {R"({"on": {"control": {"data": "0g"}}, "do": "unplug"})",
         R"("data" must be a text of pairs of hexadecimal digits)"},
        {R"({"on": {"transfer": "bulk", "argument": 1}, "do": "unplug"})",
         R"(unknown member "argument" in "on" with a transfer)"},
        {R"({"on": {"transfer": "control"}, "do": "unplug"})",
         R"(unknown kind of transfer "control")"},
        {R"({"on": {"transfer": 5}, "do": "unplug"})", "kind of transfer must be a text"},
        {R"({"on": {"sub_stream": "any", "endpoint": 1}, "do": "unplug"})",
         R"(unknown member "endpoint" in "on" with "sub_stream")"},
        {R"({"on": {"sub_stream": "h265"}, "do": "unplug"})", R"(unknown sub-stream "h265")"},
        {R"({"on": {"time_ms": 1, "endpoint": 1}, "do": "unplug"})",
         R"(unknown member "endpoint" in "on" with "time_ms")"},
        {R"({"on": {"time_ms": 86400001}, "do": "unplug"})",
         R"("time_ms" must lie in 0 to 86400000)"},
        {R"({"on": {"frame": true}, "do": "stall", "nth": 0})",
         R"("nth" must lie in 1 to 9223372036854775807)"},
        {R"({"on": {"frame": true}, "do": "stall", "from": 0})",
         R"("from" must lie in 1 to 9223372036854775807)"},
        {R"({"on": {"frame": true}, "do": "stall", "count": 0})",
         R"("count" must lie in 1 to 9223372036854775807)"},
        {R"({"on": {"frame": true}, "do": "stall", "every": 0})",
         R"("every" must lie in 1 to 9223372036854775807)"},
        {R"({"on": {"frame": true}, "do": "stall", "seed": 0})",
         R"("seed" must lie in 1 to 9223372036854775807)"},
        {R"({"on": {"frame": true}, "do": "stall", "chance": 1.5})",
         R"("chance" must be a number from 0 to 1)"},
        {R"({"on": {"frame": true}, "do": "stall", "chance": -0.1})",
         R"("chance" must be a number from 0 to 1)"},
        {R"({"on": {"frame": true}, "do": "stall", "chance": "1"})",
         R"("chance" must be a number from 0 to 1)"},
    };
    expect_refusals(cases, [](const json& rule) { return rule; });
}

TEST(RuleMembers, RefusalSaysWhatIsWrong) {
    const Refusals cases{
        {R"({})", R"("do" is empty)"},
        {R"(5)", R"("do" must be a word or an object)"},
        {R"("explode")", R"(unknown action "explode")"},
        {R"({"explode": 1})", R"(unknown member "explode" in "do")"},
        {R"({"status": "bad"})", R"(unknown status "bad")"},
        {R"({"status": 1})", "status must be a text"},
        {R"({"short": -1})", R"("short" must lie in 0 to 16777216)"},
        {R"({"actual_length": 16777217})", R"("actual_length" must lie in 0 to 16777216)"},
        {R"({"reply": 1})", R"("reply" must be a text of hexadecimal digits)"},
        {R"({"late_ms": 3600001})", R"("late_ms" must lie in 0 to 3600000)"},
        {R"({"timeout": "soon"})", R"(unknown kind of time-out "soon")"},
        {R"({"corrupt": 1})", R"("corrupt" must be an object)"},
        {R"({"corrupt": {"or": 1}})", R"(unknown member "or" in "corrupt")"},
        {R"({"corrupt": {"xor": 256}})", R"("xor" must lie in 0 to 255)"},
        {R"({"corrupt": {"offset": -1}})", R"("offset" must lie in 0 to 16777216)"},
        {R"({"header": 1})", R"("header" must be an object)"},
        {R"({"header": {"pts": true}})", R"(unknown member "pts" in "header")"},
        {R"({"header": {"length": 256}})", R"("length" must lie in 0 to 255)"},
        {R"({"overwrite": 1})", R"("overwrite" must be an object)"},
        {R"({"overwrite": {"at": 1}})", R"(unknown member "at" in "overwrite")"},
        {R"({"overwrite": {"offset": -1}})", R"("offset" must lie in 0 to 16777216)"},
        {R"({"overwrite": {}})", R"("bytes" must be a text of hexadecimal digits)"},
        {R"({"append": -1})", R"("append" must lie in 0 to 16777216)"},
    };
    expect_refusals(cases, [](const json& what) -> json {
        return {{"on", {{"transfer", "bulk"}}}, {"do", what}};
    });
}

TEST(RuleMembers, RefusalOfPacketsAndFieldsSaysWhatIsWrong) {
    const Refusals packets{
        {R"({})", R"("packets" must be a list)"},
        {R"([1])", R"("packets" must be an object)"},
        {R"([{"at": 1}])", R"(unknown member "at" in "packets")"},
        {R"([{"index": -1}])", R"("index" must lie in 0 to 16777216)"},
        {R"([{"length": -1}])", R"("length" must lie in 0 to 16777216)"},
        {R"([{"status": "bad"}])", R"(unknown status "bad")"},
    };
    expect_refusals(packets, [](const json& what) -> json {
        return {{"on", {{"transfer", "iso"}}}, {"do", {{"packets", what}}}};
    });
    const Refusals fields{
        {R"(1)", R"("fields" must be an object)"},
        {R"({"size": 1})", R"(unknown member "size" in "fields")"},
        {R"({"width": -1})", R"("width" must lie in 0 to 4294967295)"},
        {R"({"width": "wide"})", R"("width" is not a number: "wide")"},
        {R"({"width": {"plus": 1}})", R"(unknown member "plus" in "width")"},
        {R"({"width": {}})", R"("add" must be a number)"},
        {R"({"width": {"add": 4294967296}})", R"("add" must lie in -4294967295 to 4294967295)"},
    };
    expect_refusals(fields, [](const json& what) -> json {
        return {{"on", {{"sub_stream", "any"}}}, {"do", {{"fields", what}}}};
    });
}

TEST(RuleMembers, OfASelectorAreItsOwn) {
    for (const char* on :
         {R"({"call": "libusb_open", "endpoint": 1})", R"({"control": {}, "argument": 1})",
          R"({"control": {}, "endpoint": 1})", R"({"transfer": "bulk", "argument": 1})",
          R"({"time_ms": 1, "endpoint": 1})"}) {
        const json rule{{"on", json::parse(on)}, {"do", "unplug"}};
        EXPECT_NE(objection(rule).find("unknown member"), std::string::npos) << rule;
    }
}

TEST(RuleMembers, WordsStandForThemselves) {
    const auto action = [](const char* word) {
        return Rule::from_json({{"on", {{"control", json::object()}}}, {"do", word}}).action;
    };
    EXPECT_TRUE(action("stall").stall);
    EXPECT_EQ(action("timeout").time_out, virtcam::faults::TimeOut::kWait);
    EXPECT_EQ(action("power_cycle").device,
              std::vector{virtcam::faults::DeviceAction::kPowerCycle});
    EXPECT_EQ(objection({{"on", {{"control", json::object()}}}, {"do", "reply"}}),
              "fault rule: unknown action \"reply\"");
    EXPECT_EQ(objection({{"on", {{"control", json::object()}}}, {"do", 5}}),
              "fault rule: \"do\" must be a word or an object");
}

}  // namespace
}  // namespace virtcam::line::test
