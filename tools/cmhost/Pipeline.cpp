#include "Pipeline.h"

#include <signal.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstring>
#include <thread>

namespace cmhost {

namespace {

double seconds(const timeval& tv) {
    return tv.tv_sec + tv.tv_usec / 1e6;
}

double now() {
    timeval tv;
    gettimeofday(&tv, nullptr);
    return seconds(tv);
}

std::string humanBytes(unsigned long long bytes) {
    char text[32];
    if (bytes >= (10ull << 20)) {
        std::snprintf(text, sizeof text, "%llu MiB", bytes >> 20);
    } else if (bytes >= (10ull << 10)) {
        std::snprintf(text, sizeof text, "%llu KiB", bytes >> 10);
    } else {
        std::snprintf(text, sizeof text, "%llu B", bytes);
    }
    return text;
}

// Columns of the terminal on standard error, 0 when unknown. A line longer than that
// would wrap, and the block would no longer be redrawn in place.
size_t terminalWidth() {
    winsize size{};
    return ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 ? size.ws_col : 0;
}

// Draws lines over the `drawn` lines drawn before; returns how many are drawn now.
size_t drawProgress(const std::vector<std::string>& lines, size_t drawn) {
    std::string text = drawn != 0 ? "\033[" + std::to_string(drawn) + "A\r" : "";
    for (const std::string& line : lines) {
        text += "\033[K" + line + "\n";
    }
    std::fputs(text.c_str(), stderr);
    std::fflush(stderr);
    return lines.size();
}

// The signal that asked the run to end, 0 while none has.
volatile std::sig_atomic_t gStopSignal = 0;

void noteStopSignal(int signal) {
    gStopSignal = signal;
}

// Catches SIGINT and SIGTERM for as long as it lives; the handlers before it come back at
// its end.
class StopSignals {
public:
    StopSignals() {
        gStopSignal = 0;
        struct sigaction action {};
        action.sa_handler = &noteStopSignal;
        sigemptyset(&action.sa_mask);
        sigaction(SIGINT, &action, &mSavedInterrupt);
        sigaction(SIGTERM, &action, &mSavedTerminate);
    }
    ~StopSignals() {
        sigaction(SIGINT, &mSavedInterrupt, nullptr);
        sigaction(SIGTERM, &mSavedTerminate, nullptr);
    }
    StopSignals(const StopSignals&) = delete;
    StopSignals& operator=(const StopSignals&) = delete;

    // The signals' usual action again.
    static void release() {
        std::signal(SIGINT, SIG_DFL);
        std::signal(SIGTERM, SIG_DFL);
    }

private:
    struct sigaction mSavedInterrupt {};
    struct sigaction mSavedTerminate {};
};

}  // namespace

Pipeline::~Pipeline() {
    // Stages still hold readers and writers on the queues, and they hold the stages.
    for (Stage& stage : mStages) {
        stage.component->reset();
    }
}

ZR::CM::RQueue* Pipeline::addQueue(const std::string& branch, const std::string& name, int high) {
    const std::string label = branch.empty() ? name : branch + " " + name;
    mQueues.push_back(
        Queue{branch, name,
              new ZR::CM::RQueue(mLow, high > 0 ? high : mHigh, ZR::CString(label.c_str()))});
    return mQueues.back().queue.addr();
}

void Pipeline::addStage(const std::string& name, ZR::RPtr<ZR::CM::RComponent> component) {
    mStages.push_back(Stage{name, std::move(component)});
}

int Pipeline::resultOf(ZR::CM::RComponent& component) {
    const int code = static_cast<int>(component.getStatus().mExtra);
    return code != 0 ? code : component.getRunResult();
}

bool Pipeline::anyFailed() const {
    for (const Stage& stage : mStages) {
        if (stage.component->getRunningThreadCount() == 0 && resultOf(*stage.component) != 0) {
            return true;
        }
    }
    return false;
}

bool Pipeline::anyRunning() const {
    for (const Stage& stage : mStages) {
        if (stage.component->getRunningThreadCount() != 0) {
            return true;
        }
    }
    return false;
}

// A stage that has failed no longer reads its input and never ends its output, so the
// stages around it would wait on their queues for ever: once one has failed, the others
// that still run are aborted.
void Pipeline::waitForStages(bool showProgress) {
    const std::chrono::milliseconds poll(showProgress ? 200 : 20);
    size_t drawn = 0;  // lines of the progress block on the terminal
    bool stopping = false;
    while (anyRunning()) {
        if (gStopSignal != 0 && !stopping) {
            stopping = true;
            StopSignals::release();
            std::fprintf(stderr, "cmhost: %s: ending the input; another one ends cmhost now\n",
                         strsignal(gStopSignal));
            drawn = 0;
            stopImporters();
        }
        if (showProgress) {
            drawn = drawProgress(progressLines(terminalWidth()), drawn);
        }
        if (anyFailed()) {
            for (Stage& stage : mStages) {
                if (stage.component->getRunningThreadCount() != 0) {
                    stage.aborted = true;
                    stage.component->abort();
                }
            }
            break;
        }
        std::this_thread::sleep_for(poll);
    }
    if (drawn != 0) {
        std::fprintf(stderr, "\033[%zuA\r\033[J", drawn);
        std::fflush(stderr);
    }
}

void Pipeline::stopImporters() {
    for (Stage& stage : mStages) {
        if (auto* importer = dynamic_cast<ZR::CM::RImporter*>(stage.component.addr())) {
            importer->stop();
        }
    }
}

std::vector<std::string> Pipeline::progressLines(size_t width) const {
    std::vector<std::string> branches;
    std::vector<std::string> lines;
    for (const Queue& entry : mQueues) {
        const size_t index = static_cast<size_t>(
            std::find(branches.begin(), branches.end(), entry.branch) - branches.begin());
        if (index == branches.size()) {
            branches.push_back(entry.branch);
            lines.push_back(entry.branch.empty() ? "" : entry.branch + ": ");
        } else {
            lines[index] += " > ";
        }
        const ZR::CM::RQueue& queue = *entry.queue;
        char text[160];
        std::snprintf(text, sizeof text, "%s %llu fr %s [%d/%d]", entry.name.c_str(),
                      static_cast<unsigned long long>(queue.getFramesPut()),
                      humanBytes(queue.getBytesPut()).c_str(), queue.getNodeCount(),
                      queue.getHighLimit());
        lines[index] += text;
    }
    for (std::string& line : lines) {
        if (width != 0 && line.size() > width) {
            line.resize(width);
        }
    }
    return lines;
}

int Pipeline::run(bool showProgress, const std::function<void()>& beforeLastStage) {
    const StopSignals signals;
    const double started = now();
    const size_t held = beforeLastStage && !mStages.empty() ? 1 : 0;
    for (size_t i = mStages.size() - held; i-- > 0;) {
        if (mStages[i].component->start(nullptr) != 0) {
            return ZR::CM::kResultComponentStartFailed;
        }
    }
    if (held) {
        beforeLastStage();
        if (mStages.back().component->start(nullptr) != 0) {
            return ZR::CM::kResultComponentStartFailed;
        }
    }
    waitForStages(showProgress);
    int first = 0;  // the result of the first stage that failed
    int cause = 0;  // the same among the stages that were not aborted
    for (Stage& stage : mStages) {
        stage.component->join();
        stage.result = resultOf(*stage.component);
        first = first != 0 ? first : stage.result;
        cause = cause != 0 || stage.aborted ? cause : stage.result;
    }
    mWallSeconds = now() - started;
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    mUserSeconds = seconds(usage.ru_utime);
    mSystemSeconds = seconds(usage.ru_stime);
    return cause != 0 ? cause : first;
}

void Pipeline::printReport(std::FILE* out) const {
    int width = 16;
    for (const Stage& stage : mStages) {
        width = std::max(width, static_cast<int>(stage.name.size()));
    }
    for (const Stage& stage : mStages) {
        const ZR::CM::RComponent& c = *stage.component;
        std::fprintf(
            out, "%-*s %s  (wall %.3f s, user %.3f s, system %.3f s)%s\n", width,
            stage.name.c_str(), ZR::RString(stage.component->getStatus()).c_str(),
            double(c.getWallTime()), c.getUserTime(), c.getSystemTime(),
            stage.aborted ? " aborted"
            : stage.result
                ? (std::string(" failed: ") + ZR::CM::stringWithResultCode(stage.result)).c_str()
                : "");
    }
    std::fprintf(out, "run: wall %.3f s, user %.3f s, system %.3f s\n", mWallSeconds, mUserSeconds,
                 mSystemSeconds);
}

std::string Pipeline::failure() const {
    const Stage* cause = nullptr;
    for (const Stage& stage : mStages) {
        if (stage.result != 0 && (!cause || (cause->aborted && !stage.aborted))) {
            cause = &stage;
        }
    }
    if (!cause) {
        return "";
    }
    const std::string reason = statusReason(*cause->component, cause->result);
    return reason.empty() ? "" : cause->name + ": " + reason;
}

std::string statusReason(ZR::CM::RComponent& component, int code) {
    std::string info = component.getStatus().mInfo.c_str();
    const std::string prefix = ZR::CM::stringWithResultCode(code) + std::string(": ");
    if (info.compare(0, prefix.size(), prefix) == 0) {
        info.erase(0, prefix.size());
    }
    return info;
}

}  // namespace cmhost
