#include "host/session/init_report.h"

namespace camhost {

InitReport& InitReport::instance() {
    static InitReport report;
    return report;
}

void InitReport::on_init_done(bool usable) {
    InitReport& report = instance();
    const std::lock_guard lock(report.mutex_);
    ++report.answer_.calls;
    report.answer_.usable = usable;
    if (report.wake_ != nullptr) {
        report.wake_->signal();
    }
}

void InitReport::listen(WakeEvent* wake) {
    const std::lock_guard lock(mutex_);
    wake_ = wake;
    answer_ = {};
}

InitReport::Answer InitReport::answer() const {
    const std::lock_guard lock(mutex_);
    return answer_;
}

}  // namespace camhost
