// The plug-in and libuvc side by side on the measuring bus; prints a JSON document.
//
// Usage: bench_compare --plugin LIBRARY [--repeats N] [--only SECTION]... > result.json
//
// All runs of a cell are interleaved, plug-in and libuvc in turn, both streams open. scripts/bench
// runs it and reads the document.
#include <sys/resource.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <set>

#include "bench/compare/bare_wakeup.h"
#include "bench/compare/sections.h"

namespace {

/// Both sides' threads inherit it; the plug-in would otherwise raise its own alone.
constexpr int kPriority = -19;

}  // namespace

int main(int argc, char** argv) {
    CLI::App app{"Compares the plug-in with libuvc on the measuring bus"};
    bench::Options options;
    std::vector<std::string> only;
    app.add_option("--plugin", options.plugin, "the plug-in's shared library")->required();
    app.add_option("--repeats", options.repeats, "runs of each cell and side")
        ->check(CLI::PositiveNumber);
    app.add_option("--only", only, "sections: resources, closed, paced, stalls, end, growth");
    CLI11_PARSE(app, argc, argv);
    options.raised = setpriority(PRIO_PROCESS, 0, kPriority) == 0;

    // The plug-in logs to standard output, which is the document's.
    std::FILE* document = fdopen(dup(STDOUT_FILENO), "w");
    if (document == nullptr || std::freopen("/dev/null", "w", stdout) == nullptr) {
        std::perror("bench_compare");
        return 1;
    }
    try {
        const auto result = bench::run_sections(options, {only.begin(), only.end()});
        std::fprintf(document, "%s\n", result.dump(1).c_str());
    } catch (const std::exception& error) {
        std::fprintf(stderr, "bench_compare: %s\n", error.what());
        return 1;
    }
    return std::fclose(document) == 0 ? 0 : 1;
}
