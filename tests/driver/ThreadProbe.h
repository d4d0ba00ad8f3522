// A worker whose body is given by the test, with the protected state of pThread open.
#pragma once

#include <functional>
#include <utility>

#include "ptasking.h"

namespace test {

class ThreadProbe : public pThread {
  public:
    explicit ThreadProbe(std::function<void(ThreadProbe&)> body, bool detached = false,
                         int stackSize = -1)
        : pThread(detached, stackSize), m_Body(std::move(body)) {}
    ~ThreadProbe() override { Stop(); }

    void Run() override { m_Body(*this); }

    using pThread::Detached;
    using pThread::Running;
    using pThread::Shutdown;
    using pThread::StackSize;
    using pThread::thread_func;
    using pThread::thread_id;

  private:
    std::function<void(ThreadProbe&)> m_Body;
};

}  // namespace test
