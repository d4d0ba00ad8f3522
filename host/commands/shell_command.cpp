// camhost shell: the same camera, command after command.
#include <poll.h>
#include <readline/history.h>
#include <readline/readline.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <iostream>
#include <memory>

#include "host/base/nearest_name.h"
#include "host/base/text.h"
#include "host/commands/commands.h"
#include "host/commands/property_commands.h"
#include "host/commands/shell_completion.h"
#include "host/commands/shell_history.h"
#include "host/commands/workbench.h"
#include "host/properties/combination.h"

namespace camhost {

namespace {

constexpr const char* kPrompt = "camhost> ";

struct ShellCommandRow {
    const char* name;
    const char* help;
};

constexpr std::array<ShellCommandRow, 9> kShellCommands{{
    {"get", "get PROPERTY...           read properties"},
    {"set", "set PROPERTY=VALUE...     set properties"},
    {"list", "list                      all properties with their values"},
    {"capabilities", "capabilities              what the camera offers"},
    {"state", "state                     what the camera is doing"},
    {"start", "start                     start recording (nothing is written to files)"},
    {"stop", "stop                      stop recording"},
    {"help", "help                      this list"},
    {"quit", "quit                      leave (also Ctrl-D)"},
}};

std::vector<std::string> shell_command_names() {
    std::vector<std::string> names;
    names.reserve(kShellCommands.size());
    for (const ShellCommandRow& row : kShellCommands) {
        names.emplace_back(row.name);
    }
    return names;
}

/// Runs the lines that the user enters.
class Shell {
  public:
    Shell(Workbench& bench, Session& session)
        : bench_(bench), console_(bench.console()), session_(session) {}

    /// False when the user wants to leave.
    bool execute(const std::string& line);
    bool camera_lost() const { return session_.lost(); }

  private:
    bool dispatch(const std::string& command, const std::vector<std::string>& words);
    void start();

    Workbench& bench_;
    Console& console_;
    Session& session_;
};

bool Shell::execute(const std::string& line) {
    auto words = words_of(line);
    if (words.empty()) {
        return true;
    }
    const std::string command = lower(words.front());
    words.erase(words.begin());
    bool go_on = true;
    try {
        go_on = dispatch(command, words);
    } catch (const Failure& failure) {
        console_.line(failure.what());
    }
    bench_.controls().show_requests();
    return go_on;
}

bool Shell::dispatch(const std::string& command, const std::vector<std::string>& words) {
    if (command == "get") {
        for (const std::string& word : words) {
            print_get(console_, session_, word);
            bench_.controls().show_requests();
        }
    } else if (command == "set") {
        for (const std::string& word : words) {
            perform_set(console_, session_, parse_assignment(word));
            bench_.controls().show_requests();
        }
    } else if (command == "list") {
        print_list(console_, session_);
    } else if (command == "capabilities") {
        print_capabilities(console_, session_);
    } else if (command == "state") {
        console_.line(std::string("the camera is ") + words_for(session_.state()));
    } else if (command == "start") {
        start();
    } else if (command == "stop") {
        console_.line(session_.stop() ? "recording is stopped" : "the plug-in was not recording");
    } else if (command == "help") {
        for (const ShellCommandRow& row : kShellCommands) {
            console_.line(row.help);
        }
    } else if (command == "quit" || command == "exit") {
        return false;
    } else {
        console_.line("there is no command '" + command + "'" +
                      suggestion(command, shell_command_names()) + " (help lists all)");
    }
    return true;
}

void Shell::start() {
    if (session_.playing()) {
        console_.line("recording is running already");
        return;
    }
    console_.line(session_.start() ? "recording is running" : "recording could not be started");
}

/// Readline calls plain functions, so what they share is here.
struct LineEditor {
    Shell* shell = nullptr;
    bool done = false;
    std::vector<std::string> candidates;  ///< of the completion at hand
};
LineEditor g_editor;

void on_line(char* text) {
    const std::unique_ptr<char, decltype(&std::free)> owned(text, &std::free);
    if (text == nullptr) {
        g_editor.done = true;
        return;
    }
    if (*text != '\0') {
        add_history(text);
    }
    g_editor.done = !g_editor.shell->execute(text);
}

/// Readline's generator protocol: the next candidate for each call, malloc()ed, then null.
char* next_candidate(const char* /*prefix*/, int state) {
    static size_t next = 0;
    if (state == 0) {
        next = 0;
    }
    const auto& candidates = g_editor.candidates;
    return next < candidates.size() ? strdup(candidates[next++].c_str()) : nullptr;
}

char** complete(const char* word, int begin, int /*end*/) {
    g_editor.candidates = completions(
        shell_command_names(), std::string(rl_line_buffer, static_cast<size_t>(begin)), word);
    rl_attempted_completion_over = 1;
    const bool value_follows =
        g_editor.candidates.size() == 1 && g_editor.candidates.front().ends_with('=');
    rl_completion_append_character = value_follows ? 0 : int{' '};
    return rl_completion_matches(word, next_candidate);
}

struct FileCloser {
    void operator()(std::FILE* file) const { std::fclose(file); }
};

/// Line editing on a terminal. Readline works through its callback interface, so that Ctrl-C and
/// the loss of the camera are noticed while it waits.
void edit_lines(Shell& shell, const Controls& controls) {
    const std::unique_ptr<std::FILE, FileCloser> output(fdopen(dup(controls.console.fd()), "w"));
    rl_outstream = output.get();
    rl_catch_signals = 0;
    rl_readline_name = "camhost";
    rl_attempted_completion_function = complete;
    rl_basic_word_break_characters = " ";
    g_editor = {&shell, false, {}};
    const ShellHistory history;
    rl_callback_handler_install(kPrompt, on_line);
    while (!g_editor.done && !shell.camera_lost()) {
        pollfd entries[2] = {{STDIN_FILENO, POLLIN, 0}, {controls.wake.fd(), POLLIN, 0}};
        poll(entries, 2, -1);
        controls.wake.clear();
        if (controls.interrupt.requested()) {
            controls.interrupt.clear();
            controls.console.line();
            rl_replace_line("", 0);
            rl_on_new_line();
            rl_redisplay();
        }
        if (entries[0].revents != 0) {
            rl_callback_read_char();
        }
    }
    rl_callback_handler_remove();
    rl_outstream = nullptr;
}

/// Commands from a file or a pipe.
void read_lines(Shell& shell, const Controls& controls) {
    std::string line;
    while (!controls.interrupt.requested() && !shell.camera_lost() &&
           std::getline(std::cin, line)) {
        controls.console.line(kPrompt + line);
        if (!shell.execute(line)) {
            return;
        }
    }
}

}  // namespace

ExitCode run_shell(const Options& options) {
    Workbench bench(options.common, log_of(options.common));
    Session& session = bench.bring_up();
    Shell shell(bench, session);
    if (isatty(STDIN_FILENO) == 1 && bench.console().terminal()) {
        bench.console().line("help lists the commands; Tab completes");
        edit_lines(shell, bench.controls());
    } else {
        read_lines(shell, bench.controls());
    }
    if (session.lost()) {
        throw Failure(ExitCode::kCameraLost, "the camera went away: " + session.loss());
    }
    return bench.controls().interrupt.requested() ? ExitCode::kInterrupted : ExitCode::kOk;
}

}  // namespace camhost
