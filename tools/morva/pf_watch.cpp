// morva pf watch: reloads as they happen.
#include <poll.h>
#include <signal.h>

#include <cmath>
#include <csignal>
#include <ctime>

#include "output.hpp"
#include "pf_commands.hpp"
#include "pf_tree.hpp"

namespace tool {

namespace {

volatile std::sig_atomic_t g_interrupted = 0;

// Signals that end the watch are let in only while it waits, so that none is missed.
class Interruptible {
  public:
    Interruptible() {
        sigset_t ends;
        sigemptyset(&ends);
        for (const int signal : {SIGINT, SIGTERM}) {
            struct sigaction action {};
            action.sa_handler = [](int) { g_interrupted = 1; };
            sigaction(signal, &action, nullptr);
            sigaddset(&ends, signal);
        }
        sigprocmask(SIG_BLOCK, &ends, &outside_);
    }
    // False when the watch is to end.
    bool wait(double seconds) const {
        const double whole = std::floor(seconds);
        const timespec time{static_cast<time_t>(whole), static_cast<long>((seconds - whole) * 1e9)};
        ::ppoll(nullptr, 0, &time, &outside_);
        return g_interrupted == 0;
    }

  private:
    sigset_t outside_{};
};

// The values below a path as they are now; none when there is no such file.
std::vector<Leaf> values_of(Pf* tree, const std::string& path) {
    Pf* node = tree;
    if (tree != nullptr && !path.empty() && pfresolve(tree, path.c_str(), 0, &node) < 0)
        node = nullptr;
    return leaves_of(node, path);
}

void print_reload(const std::string& name, const std::vector<Leaf>& was,
                  const std::vector<Leaf>& is, bool gone, bool json) {
    char time[32];
    const std::time_t now = std::time(nullptr);
    struct tm parts {};
    std::strftime(time, sizeof time, "%Y-%m-%dT%H:%M:%SZ", ::gmtime_r(&now, &parts));
    if (json) {
        print(JsonObject()
                  .text("time", time)
                  .text("name", name)
                  .boolean("gone", gone)
                  .raw("changes", difference_json(was, is))
                  .str() +
              "\n");
    } else {
        print(coloured(Colour::bold, std::string(time) + " " + one_line(name)) +
              (gone ? " is gone\n" : " reloaded\n"));
        print_difference(was, is);
    }
    std::fflush(stdout);
}

class Watch {
  public:
    Watch(std::string name, std::string path, bool json)
        : name_(std::move(name)), path_(std::move(path)), json_(json) {}

    // Looks once; true when something is told. -1, as long as it stays so, is told once.
    bool look() {
        const int result = pfupdate(name_.c_str(), &tree_);
        if (result == 0) gone_ = false;
        if (result == 0 || (result == -1 && gone_)) return false;
        const bool gone = result == -1 && files_are_gone();
        if (gone)
            elog_clear();
        else if (result < 0)
            elog_complain(0, "errors in parameter file %s", name_.c_str());
        std::vector<Leaf> now = gone ? values_ : values_of(tree_, path_);
        print_reload(name_, values_, now, gone, json_);
        values_ = std::move(now);
        gone_ = gone;
        return true;
    }

    // The first look, which is no change.
    bool begin() {
        const int result = pfupdate(name_.c_str(), &tree_);
        values_ = values_of(tree_, path_);
        return result == 1;
    }

  private:
    bool files_are_gone() const {
        return Records(pffiles(name_.c_str(), 0), std::free).size() == 0;
    }

    std::string name_, path_;
    bool json_;
    Pf* tree_ = nullptr;  // belongs to pfupdate
    std::vector<Leaf> values_;
    bool gone_ = false;
};

}  // namespace

int pf_watch(const Arguments& arguments) {
    const Interruptible interruptible;
    Watch watch(arguments.text("NAME"), arguments.text("PATH"), arguments.has("--json"));
    if (!watch.begin()) {
        elog_complain(0, "can't read parameter file %s", arguments.text("NAME").c_str());
        return kUnusable;
    }
    const double interval = std::strtod(arguments.text("--interval", "1").c_str(), nullptr);
    long left = std::strtol(arguments.text("--count", "-1").c_str(), nullptr, 10);
    while (left != 0 && interruptible.wait(interval) && std::ferror(stdout) == 0)
        if (watch.look()) --left;
    return finish(kDone);
}

}  // namespace tool
