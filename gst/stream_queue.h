// The road from a capture thread of the plug-in to the streaming thread of a pad.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <utility>

namespace gstcam {

/// Queue of a stated length in time. The capture thread never waits: a record that comes while the
/// queue is full is dropped, the newest first, and the next one that is taken is marked. Where
/// records build on each other (H.264) all are dropped then until a key frame, with which a stream
/// also begins. Any thread.
template <typename Payload>
class StreamQueue {
  public:
    struct Entry {
        Payload payload{};
        int64_t time = 0;            ///< ns; does not go back from entry to entry
        bool key = true;             ///< can be understood without those before it
        bool discontinuity = false;  ///< something is missing before it
    };
    enum class Push { kTaken, kDropped, kDroppedForWantOfKey, kClosed };
    enum class Pop { kEntry, kEnd, kClosed };

    struct Figures {
        uint64_t taken = 0;
        uint64_t dropped = 0;
        uint64_t discontinuities = 0;
        size_t queued = 0;
    };

    explicit StreamQueue(bool needs_key) : needs_key_(needs_key) {}

    /// Opens the queue, empty, for records of at most `length` ns.
    void open(int64_t length) {
        const std::lock_guard lock(mutex_);
        entries_.clear();
        length_ = length;
        state_ = State::kOpen;
        broken_ = true;
        held_ = false;
    }

    /// While held, nothing is handed out: a live source is silent when it is paused. What is queued
    /// is forgotten.
    void hold(bool held) {
        {
            const std::lock_guard lock(mutex_);
            held_ = held;
            if (held) {
                entries_.clear();
                broken_ = true;
            }
        }
        changed_.notify_all();
    }

    /// Nothing is taken or handed out any more.
    void close() {
        {
            const std::lock_guard lock(mutex_);
            state_ = State::kClosed;
            entries_.clear();
        }
        changed_.notify_all();
    }

    /// Nothing more comes: what is queued is handed out, then the end.
    void end() {
        {
            const std::lock_guard lock(mutex_);
            if (state_ == State::kOpen) {
                state_ = State::kEnding;
            }
        }
        changed_.notify_all();
    }

    /// The next record does not follow on the last one.
    void break_off() {
        const std::lock_guard lock(mutex_);
        broken_ = true;
    }

    /// Says what push() would do, so that a record that will be dropped is not copied.
    Push would_take(int64_t time, bool key) {
        const std::lock_guard lock(mutex_);
        return decide(time, key);
    }

    Push push(Entry entry) {
        {
            const std::lock_guard lock(mutex_);
            const Push decision = decide(entry.time, entry.key);
            if (decision != Push::kTaken) {
                return decision;
            }
            entry.discontinuity |= std::exchange(broken_, false);
            figures_.discontinuities += entry.discontinuity ? 1 : 0;
            ++figures_.taken;
            entries_.push_back(std::move(entry));
        }
        changed_.notify_all();
        return Push::kTaken;
    }

    /// Counts a record that was not taken, and remembers that one is missing.
    void note_drop() {
        const std::lock_guard lock(mutex_);
        ++figures_.dropped;
        broken_ = true;
    }

    /// Waits for the oldest entry.
    Pop pop(Entry* entry) {
        std::unique_lock lock(mutex_);
        changed_.wait(lock,
                      [this] { return state_ != State::kOpen || (!held_ && !entries_.empty()); });
        if (state_ == State::kClosed) {
            return Pop::kClosed;
        }
        if (entries_.empty()) {
            return Pop::kEnd;
        }
        *entry = std::move(entries_.front());
        entries_.pop_front();
        return Pop::kEntry;
    }

    /// True between open() and close() while it is not held.
    bool flows() const {
        const std::lock_guard lock(mutex_);
        return state_ != State::kClosed && !held_;
    }

    Figures figures() const {
        const std::lock_guard lock(mutex_);
        Figures result = figures_;
        result.queued = entries_.size();
        return result;
    }

  private:
    enum class State { kClosed, kOpen, kEnding };

    Push decide(int64_t time, bool key) const {
        if (state_ != State::kOpen) {
            return Push::kClosed;
        }
        if (!entries_.empty() && time - entries_.front().time >= length_) {
            return Push::kDropped;
        }
        return broken_ && needs_key_ && !key ? Push::kDroppedForWantOfKey : Push::kTaken;
    }

    const bool needs_key_;
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<Entry> entries_;
    int64_t length_ = 0;
    State state_ = State::kClosed;
    bool broken_ = true;
    bool held_ = false;
    Figures figures_;
};

}  // namespace gstcam
