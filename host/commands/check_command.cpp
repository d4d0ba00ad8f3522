// camhost check: the acceptance test of a camera.
#include <algorithm>
#include <fstream>

#include "host/acceptance/check.h"
#include "host/base/nearest_name.h"
#include "host/base/temporary_folder.h"
#include "host/base/text.h"
#include "host/commands/commands.h"
#include "host/commands/workbench.h"

namespace camhost {

namespace {

using Verdict = CheckResult::Verdict;

constexpr const char* kFound = "found";

struct Outcome {
    std::string name;
    CheckResult result;
    double seconds = 0;
};

std::vector<std::string> names_of(const std::vector<Check>& checks) {
    std::vector<std::string> names{kFound};
    for (const Check& each : checks) {
        names.push_back(each.name);
    }
    return names;
}

bool is_chosen(const CheckOptions& options, const std::string& name) {
    return options.only.empty() ||
           std::find(options.only.begin(), options.only.end(), name) != options.only.end();
}

/// Names are checked before the camera is brought up, which takes seconds.
void require_known(const CheckOptions& options) {
    std::vector<std::string> known = names_of(all_checks(Selector::kSignalType));
    const auto others = names_of(all_checks(Selector::kVideoMode));
    known.insert(known.end(), others.begin(), others.end());
    for (const std::string& name : options.only) {
        if (std::find(known.begin(), known.end(), name) == known.end()) {
            throw Failure(ExitCode::kUsage, "there is no check '" + name + "'" +
                                                suggestion(name, known) +
                                                " (camhost check --list)");
        }
    }
}

void list() {
    constexpr int kStandardOutput = 1;
    Console console(kStandardOutput);
    console.line(format("%-30s %s", kFound, "Init reports a camera that can be used"));
    for (const Check& each : all_checks(Selector::kSignalType)) {
        console.line(format("%-30s %s", each.name.c_str(), each.what.c_str()));
    }
}

std::string escaped(const std::string& text) {
    std::string result;
    for (const char letter : text) {
        switch (letter) {
            case '<':
                result += "&lt;";
                break;
            case '&':
                result += "&amp;";
                break;
            case '"':
                result += "&quot;";
                break;
            default:
                result += letter;
                break;
        }
    }
    return result;
}

/// Runs the checks and keeps what came of them.
class AcceptanceTest {
  public:
    AcceptanceTest(const CheckOptions& options, Console& console)
        : options_(options), console_(console) {}

    void add(const std::string& name, CheckResult result, double seconds) {
        console_.line(format("%s  %-30s %s", words_for(result.verdict), name.c_str(),
                             result.measured.c_str()));
        outcomes_.push_back({name, std::move(result), seconds});
    }

    /// Each check that was chosen; what a loss of the camera leaves is skipped.
    void run(const std::vector<Check>& checks, CheckBench& bench) {
        std::string over;
        for (const Check& check : checks) {
            if (!is_chosen(options_, check.name)) {
                continue;
            }
            if (!over.empty()) {
                add(check.name, skipped(over), 0);
                continue;
            }
            const auto begin = Clock::now();
            CheckResult result;
            try {
                result = check.run(bench);
            } catch (const Failure& failure) {
                if (failure.code() != ExitCode::kCameraLost) {
                    throw;
                }
                result = passed_if(false, failure.what());
                over = "the camera is gone";
            }
            bench.controls.show_requests();
            add(check.name, std::move(result),
                std::chrono::duration<double>(Clock::now() - begin).count());
        }
    }

    size_t count(Verdict verdict) const {
        return static_cast<size_t>(
            std::count_if(outcomes_.begin(), outcomes_.end(),
                          [&](const Outcome& each) { return each.result.verdict == verdict; }));
    }

    void conclude() const {
        console_.line(format("%zu passed, %zu failed, %zu skipped", count(Verdict::kPass),
                             count(Verdict::kFail), count(Verdict::kSkip)));
        if (!options_.junit.empty()) {
            write_junit();
        }
    }

  private:
    void write_junit() const {
        std::ofstream file(options_.junit);
        file << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<testsuite name=\"camhost check\" "
                "tests=\""
             << outcomes_.size() << "\" failures=\"" << count(Verdict::kFail) << "\" skipped=\""
             << count(Verdict::kSkip) << "\">\n";
        for (const Outcome& each : outcomes_) {
            file << "  <testcase classname=\"camhost.check\" name=\"" << escaped(each.name)
                 << format("\" time=\"%.3f\">", each.seconds);
            const std::string measured = escaped(each.result.measured);
            if (each.result.verdict == Verdict::kFail) {
                file << "<failure message=\"" << measured << "\"/>";
            } else if (each.result.verdict == Verdict::kSkip) {
                file << "<skipped message=\"" << measured << "\"/>";
            } else {
                file << "<system-out>" << measured << "</system-out>";
            }
            file << "</testcase>\n";
        }
        file << "</testsuite>\n";
        file.close();
        if (!file) {
            throw Failure(ExitCode::kFailed, "cannot write " + options_.junit.string());
        }
    }

    const CheckOptions& options_;
    Console& console_;
    std::vector<Outcome> outcomes_;
};

/// What a camera that does not come up fails; nothing else can be tried.
ExitCode without_camera(const Failure& failure, AcceptanceTest& test, const CheckOptions& options) {
    test.add(kFound, passed_if(false, failure.what()), 0);
    for (const Check& each : all_checks(Selector::kSignalType)) {
        if (is_chosen(options, each.name)) {
            test.add(each.name, skipped("no camera"), 0);
        }
    }
    test.conclude();
    return failure.code();
}

}  // namespace

ExitCode run_check(const Options& options) {
    require_known(options.check);
    if (options.check.list) {
        list();
        return ExitCode::kOk;
    }
    std::optional<TemporaryFolder> temporary;
    std::filesystem::path folder = options.record.output;
    if (folder.empty()) {
        folder = temporary.emplace().path();
    }
    std::filesystem::create_directories(folder);
    const auto log = options.common.log.empty() ? folder / "plugin.log" : options.common.log;
    Workbench bench(options.common, log);
    AcceptanceTest test(options.check, bench.console());
    const auto begin = Clock::now();
    Session* session = nullptr;
    try {
        session = &bench.bring_up();
    } catch (const Failure& failure) {
        if (failure.code() != ExitCode::kNoCamera) {
            throw;
        }
        return without_camera(failure, test, options.check);
    }
    const double seconds = std::chrono::duration<double>(Clock::now() - begin).count();
    if (is_chosen(options.check, kFound)) {
        test.add(kFound, passed_if(true, format("after %.1f s", seconds)), seconds);
    }
    const Controls controls = bench.controls();
    CheckBench checks(*session, controls, folder, log, bench.plugin().version(),
                      options.check.interactive);
    test.run(all_checks(session->selector()), checks);
    const bool lost = session->lost() && !options.check.interactive;
    test.conclude();
    if (lost) {
        return ExitCode::kCameraLost;
    }
    return test.count(Verdict::kFail) == 0 ? ExitCode::kOk : ExitCode::kCheckFailed;
}

}  // namespace camhost
