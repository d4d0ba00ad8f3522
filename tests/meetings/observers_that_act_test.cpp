// Observers that register, remove, call back, throw or take two seconds, while the host stops,
// restarts, destroys or loses its camera.
#include <functional>
#include <stdexcept>
#include <vector>

#include "tests/meetings/life.h"

namespace sim {
namespace {

/// Two seconds of an observer in each of the two capture threads, a stop, and one more of each for the
/// frames that came meanwhile.
constexpr Time kLongest = 20s;

class Actor;

struct Act {
    const char* name;
    void (*act)(Host& host, Actor& self);
};

/// Does something in each Update.
class Actor : public ICameraObserver {
  public:
    Actor(int type, Host& host, const Act& act) : host_(host), act_(act) {
        SetStreamType(static_cast<CAM_STREAM_TYPE>(type));
    }
    bool Update(const CCameraData*) override {
        ++updates_;
        act_.act(host_, *this);
        return true;
    }
    size_t updates() const { return updates_; }
    /// Of the same stream; stays registered until the end of the test.
    Reader& newcomer() {
        newcomers_.push_back(std::make_unique<Reader>(m_StreamType));
        return *newcomers_.back();
    }
    void forget_newcomers() {
        for (const auto& newcomer : newcomers_) {
            host_->RemoveObserver(newcomer.get());
        }
    }

  private:
    Host& host_;
    const Act& act_;
    size_t updates_ = 0;
    std::vector<std::unique_ptr<Reader>> newcomers_;
};

const Act kActs[] = {
    {"Registers",
     [](Host& h, Actor& self) {
         if (self.GetStreamType() != CAM_STREAM_PCM) {
             h->RegisterObserver(&self.newcomer());
         }
     }},
    {"RemovesItself",
     [](Host& h, Actor& self) {
         if (self.GetStreamType() != CAM_STREAM_PCM) {
             h->RemoveObserver(&self);
         }
     }},
    {"Queries",
     [](Host& h, Actor&) {
         CAM_PROP_VALUE param = {};
         h->GetProperty(CAM_PROPERTY_LUX, &param);
     }},
    {"SetsAProperty", [](Host& h, Actor&) { set(h, CAM_PROPERTY_BITRATE, 500000); }},
    {"SetsTheSignalType", [](Host& h, Actor&) { set(h, CAM_PROPERTY_SIGNAL_TYPE, 2); }},
    {"Starts", [](Host& h, Actor&) { h->StartRecording(); }},
    {"Stops", [](Host& h, Actor&) { h->StopRecording(); }},
    {"Initialises", [](Host& h, Actor&) { h->Init(Host::hear, 0); }},
    {"Destroys", [](Host& h, Actor&) { cam_destroy(&h.camera()); }},
    {"Throws", [](Host&, Actor&) { throw std::runtime_error("an observer's own"); }},
    {"TakesTwoSeconds", [](Host&, Actor&) { pass(2s); }},
};

/// What the host does meanwhile.
const std::pair<const char*, void (*)(Life&)> kMeanwhile[] = {
    {"stop", [](Life& life) { life.host()->StopRecording(); }},
    {"restart", [](Life& life) { set(life.host(), CAM_PROPERTY_SAMPLERATE, 24000); }},
    {"query",
     [](Life& life) {
         CAM_PROP_VALUE param = {};
         life.host()->GetProperty(CAM_PROPERTY_LUX, &param);
     }},
    {"unplug",
     [](Life&) {
         Bus::unplug();
         Host::await_answer(20s);
     }},
    {"destroy", [](Life& life) { life.host().destroy(); }},
};

class ObserverThat : public ::testing::TestWithParam<Act> {
  protected:
    void SetUp() override { write_tv_files(); }

    static void meet(int type, const std::pair<const char*, void (*)(Life&)>& meanwhile) {
        SCOPED_TRACE(std::string(meanwhile.first) + " while a record of type " +
                     std::to_string(type) + " is delivered");
        const World world;
        Life life(kReady);
        Actor actor(type, life.host(), GetParam());
        life.host()->RegisterObserver(&actor);
        ASSERT_TRUE(life.host()->StartRecording());
        EXPECT_TRUE(pass_until([&] { return actor.updates() > 0; }, 5s));
        const Time begin = World::now();
        meanwhile.second(life);
        EXPECT_LE(World::now() - begin, kLongest);
        if (meanwhile.first != std::string("destroy")) {
            actor.forget_newcomers();
            life.host()->RemoveObserver(&actor);
            life.expect_to_record();
        }
        life.expect_to_leave_nothing();
    }
};
INSTANTIATE_TEST_SUITE_P(Acts, ObserverThat, ::testing::ValuesIn(kActs),
                         [](const auto& act) { return std::string(act.param.name); });

TEST_P(ObserverThat, HoldsNobodyUp) {
    for (const auto& meanwhile : kMeanwhile) {
        for (const int type : {CAM_STREAM_H264_MAIN, CAM_STREAM_PCM}) {
            meet(type, meanwhile);
        }
    }
}

}  // namespace
}  // namespace sim
