// What users type: durations, sizes, names, properties, combinations.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <set>

#include "host/base/exit_code.h"
#include "host/base/nearest_name.h"
#include "host/base/temporary_folder.h"
#include "host/base/text.h"
#include "host/commands/shell_completion.h"
#include "host/commands/virtual_camera.h"
#include "host/properties/combination.h"
#include "host/properties/property_catalog.h"
#include "host/session/cures.h"
#include "host/streams/stream.h"

namespace camhost::test {
namespace {

using std::chrono::milliseconds;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

std::string usage_error(const std::function<void()>& action) {
    try {
        action();
    } catch (const Failure& failure) {
        EXPECT_EQ(failure.code(), ExitCode::kUsage);
        return failure.what();
    }
    ADD_FAILURE() << "nothing was wrong";
    return {};
}

TEST(Text, ReadsNumbersThatFillTheWord) {
    int32_t value = 0;
    EXPECT_TRUE(parse_int("-12", &value));
    EXPECT_EQ(value, -12);
    EXPECT_TRUE(parse_int("0x0B", &value));
    EXPECT_EQ(value, 11);
    EXPECT_TRUE(parse_int("010", &value));
    EXPECT_EQ(value, 10);
    EXPECT_TRUE(parse_int("4294967295", &value));
    EXPECT_EQ(value, -1);
    for (const char* wrong : {"", "1 ", " 1", "1a", "0x", "4294967296", "-2147483649", "1.5"}) {
        EXPECT_FALSE(parse_int(wrong, &value)) << wrong;
    }
}

TEST(Text, ReadsDurations) {
    milliseconds duration{};
    EXPECT_TRUE(parse_duration("3", &duration));
    EXPECT_EQ(duration, milliseconds(3000));
    EXPECT_TRUE(parse_duration("2.5s", &duration));
    EXPECT_EQ(duration, milliseconds(2500));
    EXPECT_TRUE(parse_duration("500ms", &duration));
    EXPECT_EQ(duration, milliseconds(500));
    for (const char* wrong : {"", "s", "ms", "-1", "3m", "nan", "inf", "1e9", "86401"}) {
        EXPECT_FALSE(parse_duration(wrong, &duration)) << wrong;
    }
}

TEST(Text, ReadsSizes) {
    int16_t width = 0;
    int16_t height = 0;
    EXPECT_TRUE(parse_size("1280X720", &width, &height));
    EXPECT_EQ(width, 1280);
    EXPECT_EQ(height, 720);
    for (const char* wrong :
         {"", "640", "640x", "x480", "640x480x1", "0x480", "640x40000", "-1x2"}) {
        EXPECT_FALSE(parse_size(wrong, &width, &height)) << wrong;
    }
}

TEST(NearestName, CountsSlips) {
    EXPECT_EQ(edit_distance("mirror", "mirror"), 0U);
    EXPECT_EQ(edit_distance("miror", "mirror"), 1U);
    EXPECT_EQ(edit_distance("imrror", "mirror"), 1U);
    EXPECT_EQ(edit_distance("", "pan"), 3U);
}

TEST(NearestName, SuggestsOnlyWhatIsNear) {
    const std::vector<std::string> names{"bitrate", "mirror", "pan", "preview-mode"};
    EXPECT_EQ(nearest_name("birtate", names), "bitrate");
    EXPECT_EQ(nearest_name("preview", names), "preview-mode");
    EXPECT_EQ(nearest_name("quality", names), "");
    EXPECT_EQ(suggestion("mirrow", names), "; did you mean 'mirror'?");
    EXPECT_EQ(suggestion("quality", names), "");
}

TEST(Streams, ReadsLists) {
    EXPECT_EQ(parse_streams("all").size(), kStreamCount);
    EXPECT_EQ(parse_streams("Main,pcm"), (StreamSet{Stream::kH264Main, Stream::kPcm}));
    EXPECT_NE(usage_error([] { parse_streams("main,grey"); }).find("did you mean 'gray'"),
              std::string::npos);
}

TEST(Combinations, ReadsNameEnumeratorAndNumber) {
    EXPECT_EQ(parse_combination(Selector::kSignalType, "h264-nv21"), 4);
    EXPECT_EQ(parse_combination(Selector::kSignalType, "cam_signal_gray"), 2);
    EXPECT_EQ(parse_combination(Selector::kSignalType, "13"), 13);
    EXPECT_EQ(parse_combination(Selector::kVideoMode, "h264-jpeg"), 2);
    EXPECT_NE(usage_error([] {
                  parse_combination(Selector::kVideoMode, "h264-jpg");
              }).find("did you mean 'h264-jpeg'"),
              std::string::npos);
}

TEST(Combinations, NumbersAreTheInterfacesOwn) {
    for (const Selector selector : {Selector::kSignalType, Selector::kVideoMode}) {
        int expected = 0;
        for (const Combination& each : combinations(selector)) {
            EXPECT_EQ(each.number, expected++);
            EXPECT_EQ(each.carries.count(Stream::kPcm), 1U);
        }
    }
    EXPECT_EQ(find_combination(Selector::kSignalType, 9), nullptr);
    EXPECT_EQ(combination_name(Selector::kSignalType, 9), "9");
}

TEST(Properties, NamesAndNumbersAreUnique) {
    std::set<std::string> names;
    std::set<int> numbers;
    for (const Property& property : property_catalog()) {
        EXPECT_TRUE(names.insert(property.name).second) << property.name;
        EXPECT_TRUE(numbers.insert(property.number).second) << property.name;
        EXPECT_TRUE(property.settable || property.gettable) << property.name;
    }
}

TEST(Properties, UnknownNameSuggestsTheNearest) {
    EXPECT_NE(usage_error([] { find_property("bitrat"); }).find("did you mean 'bitrate'"),
              std::string::npos);
}

TEST(Properties, NumberReachesWhatHasNoName) {
    EXPECT_STREQ(find_property("12").name, "mirror");
    EXPECT_EQ(find_property("48").number, CAM_PROPERTY_VERSION);
    EXPECT_EQ(find_property("-1").number, static_cast<CAM_PROPERTY>(-1));
}

struct ValueCase {
    const char* property;
    const char* text;
    int value;
    const char* shown;
};

class PropertyValue : public testing::TestWithParam<ValueCase> {};

TEST_P(PropertyValue, IsReadAndShown) {
    const ValueCase& row = GetParam();
    const Property property = find_property(row.property);
    const CAM_PROP_VALUE value = parse_value(property, row.text);
    EXPECT_EQ(value.value, row.value);
    EXPECT_EQ(format_value(property, value), row.shown);
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, PropertyValue,
    testing::Values(ValueCase{"bitrate", "4000000", 4000000, "4000000"},
                    ValueCase{"pan", "-5", -5, "-5"}, ValueCase{"mirror", "on", 1, "on"},
                    ValueCase{"mirror", "No", 0, "off"}, ValueCase{"mirror", "7", 7, "on (7)"},
                    ValueCase{"size", "1280x720", 1280 | 720 << 16, "1280x720"},
                    ValueCase{"crop", "100,50", 100 | 50 << 16, "100,50"},
                    ValueCase{"crop", "off", 0, "off"}, ValueCase{"key-frame", "", 0, ""},
                    ValueCase{"signal-type", "h264-gray", 1, "h264-gray"},
                    ValueCase{"video-mode", "1", 1, "h264-mjpeg"},
                    ValueCase{"i2c-audio-read", "0x1234", 0x1234, "0x1234"},
                    ValueCase{"i2c-audio-write", "0x1234:0x56", 0x561234, "0x1234:0x56"}));

TEST(Properties, WrongKindsSayWhatIsExpected) {
    const std::vector<std::pair<std::string, std::string>> rows{
        {"bitrate=fast", "a whole number"},    {"mirror=maybe", "on or off"},
        {"size=big", "a size such as"},        {"crop=1", "a point such as"},
        {"key-frame=1", "no value"},           {"i2c-audio-read=0x10000", "a 16-bit address"},
        {"i2c-audio-write=1", "address:data"}, {"bitrate", "needs a value"},
        {"lux=1", "can only be read"},         {"signal-type=gry", "did you mean 'gray'"}};
    for (const auto& [assignment, expected] : rows) {
        const std::string& text = assignment;
        EXPECT_NE(usage_error([&] { parse_assignment(text); }).find(expected), std::string::npos)
            << assignment;
    }
}

TEST(Properties, RangeIsToldOfEveryNumber) {
    for (const Property& property : property_catalog()) {
        if (property.kind == ValueKind::kInteger || property.kind == ValueKind::kSize) {
            EXPECT_STRNE(property.range, "") << property.name;
        }
    }
}

TEST(Properties, ValueWordsAreRead) {
    for (const Property& property : property_catalog()) {
        for (const std::string& word : value_words(property)) {
            EXPECT_EQ(format_value(property, parse_value(property, word)), word) << property.name;
        }
    }
}

TEST(Completion, OffersWhatMayStandThere) {
    using Words = std::vector<std::string>;
    const auto offered = [](const std::string& before, const std::string& word) {
        return completions({"get", "set", "start"}, before, word);
    };
    EXPECT_EQ(offered("", "s"), (Words{"set", "start"}));
    EXPECT_EQ(offered("  ", "g"), (Words{"get"}));
    EXPECT_EQ(offered("get fps ", "lu"), (Words{"lux"}));
    EXPECT_EQ(offered("get ", "mirr"), Words{}) << "it cannot be read";
    EXPECT_EQ(offered("set ", "mirr"), (Words{"mirror="}));
    EXPECT_EQ(offered("set ", "key"), (Words{"key-frame"})) << "it takes no value";
    EXPECT_EQ(offered("set ", "lux"), Words{}) << "it can only be read";
    EXPECT_EQ(offered("set fps=3 ", "mirror=o"), (Words{"mirror=on", "mirror=off"}));
    EXPECT_EQ(offered("set ", "video-mode="),
              (Words{"video-mode=h264-h264", "video-mode=h264-mjpeg", "video-mode=h264-jpeg"}));
    EXPECT_EQ(offered("set ", "bitrate="), Words{});
    EXPECT_EQ(offered("start ", ""), Words{});
}

TEST(VirtualCamera, TakesPresetsAndJson) {
    EXPECT_EQ(virtual_configuration(""), "{}");
    EXPECT_NE(virtual_configuration("running").find("run-time"), std::string::npos);
    EXPECT_EQ(virtual_configuration("unplug-at-3s"),
              R"({"events":[{"do":"unplug","nth":90,"on":{"frame":true}}]})");
    EXPECT_EQ(virtual_configuration(R"({"bus": {}})"), R"({"bus": {}})");
    EXPECT_NE(usage_error([] { virtual_configuration("runing"); }).find("did you mean 'running'"),
              std::string::npos);
    EXPECT_NE(usage_error([] { virtual_configuration("{"); }).find("no valid JSON"),
              std::string::npos);
}

// --- what keeps a camera from being used ---------------------------------------------------------

class Cures : public testing::Test {
  protected:
    void write(const std::string& name, const std::string& text) const {
        const auto path = folder_.path() / name;
        std::filesystem::create_directories(path.parent_path());
        std::ofstream(path) << text << '\n';
    }
    void plug_camera() const {
        write("devices/1-2/idVendor", "114d");
        write("devices/1-2/busnum", "1");
        write("devices/1-2/devnum", "7");
    }
    std::vector<std::string> found() const {
        return cures(
            {folder_.path() / "devices", folder_.path() / "nodes", folder_.path() / "memory"});
    }

    TemporaryFolder folder_;
};

TEST_F(Cures, MissingCamera) {
    write("devices/1-1/idVendor", "1d6b");
    EXPECT_THAT(found(), ElementsAre(HasSubstr("no USB device of vendor 114d")));
}

TEST_F(Cures, NodeThatCannotBeUsed) {
    plug_camera();  // without a node, which even root cannot open
    EXPECT_THAT(found(), ElementsAre(AllOf(HasSubstr("nodes/001/007"),
                                           HasSubstr("60-aitorixcamera.rules"))));
    write("nodes/001/007", "");
    EXPECT_THAT(found(), IsEmpty());
}

TEST_F(Cures, LittleMemory) {
    plug_camera();
    write("nodes/001/007", "");
    write("memory", "4");
    EXPECT_THAT(found(), ElementsAre(HasSubstr("usbfs may use 4 MiB only")));
    write("memory", "16");
    EXPECT_THAT(found(), IsEmpty());
}

}  // namespace
}  // namespace camhost::test
