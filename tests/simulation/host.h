// A host in virtual time: it leads the plug-in through a life as the framework does.
#pragma once

#include <deque>

#include "Src/CameraInterface.h"
#include "tests/simulation/world.h"

extern "C" {
ICameraSubject* cam_create();
void cam_destroy(ICameraSubject* camera);
}

namespace sim {

/// Reads every byte of every record, so that a sanitizer sees where it lies.
class Reader : public ICameraObserver {
  public:
    explicit Reader(int type) { SetStreamType(static_cast<CAM_STREAM_TYPE>(type)); }

    bool Update(const CCameraData* record) override {
        const auto* bytes = static_cast<const unsigned char*>(record->m_pData);
        for (unsigned long i = 0; i < record->m_size; ++i) {
            sum_ = static_cast<unsigned char>(sum_ + bytes[i]);
        }
        ++records_;
        see(*record);
        return true;
    }
    size_t records() const { return records_; }

  protected:
    virtual void see(const CCameraData& /*record*/) {}

  private:
    size_t records_ = 0;
    volatile unsigned char sum_ = 0;
};

/// The television's framework with one camera object.
class Host {
  public:
    Host() : camera_(cam_create()) { forget(); }
    ~Host() { destroy(); }
    Host(const Host&) = delete;
    Host& operator=(const Host&) = delete;

    ICameraSubject* operator->() const { return camera_; }
    ICameraSubject& camera() const { return *camera_; }

    /// Init, and its answer within `limit`; no answer is false.
    bool init(Time limit = std::chrono::minutes(2)) {
        forget();
        camera_->Init(hear, 0);
        return await_answer(limit) && answers().back();
    }
    /// False: the host's callback was not called within `limit`.
    static bool await_answer(Time limit) { return answered().wait(limit); }
    /// What the callback was told, in order.
    static std::deque<bool>& answers() {
        static std::deque<bool> all;
        return all;
    }
    static void hear(bool usable) {
        answers().push_back(usable);
        answered().set();
    }
    void destroy() {
        if (camera_ != nullptr) {
            cam_destroy(camera_);
            camera_ = nullptr;
        }
    }

  private:
    static void forget() {
        answers().clear();
        answered() = Signal();
    }
    static Signal& answered() {
        static Signal signal;
        return signal;
    }

    ICameraSubject* camera_;
};

// Host calls in one word each, for tables of them.

inline void set(Host& host, CAM_PROPERTY property, int value) {
    CAM_PROP_VALUE param;
    param.value = value;
    host->SetProperty(property, &param);
}

inline void get(Host& host, CAM_PROPERTY property) {
    CAM_PROP_VALUE param = {};
    host->GetProperty(property, &param);
}

/// An observer comes and goes.
inline void visit(Host& host, CAM_STREAM_TYPE type) {
    Reader visitor(type);
    host->RegisterObserver(&visitor);
    host->RemoveObserver(&visitor);
}

/// Passes time until `condition` holds; false: it did not within `limit`.
template <typename Condition>
bool pass_until(Condition condition, Time limit) {
    const Time end = World::now() + limit;
    while (!condition()) {
        if (World::now() >= end) {
            return false;
        }
        pass(std::chrono::milliseconds(10));
    }
    return true;
}

}  // namespace sim
