#include "Pipeline.h"

#include <sys/resource.h>
#include <sys/time.h>
#include <unistd.h>

#include <chrono>
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

}  // namespace

Pipeline::~Pipeline() {
    // Stages still hold readers and writers on the queues, and they hold the stages.
    for (Stage& stage : mStages) {
        stage.component->reset();
    }
}

ZR::CM::RQueue* Pipeline::addQueue(const std::string& name) {
    mQueues.emplace_back(new ZR::CM::RQueue(mLow, mHigh, ZR::CString(name.c_str())));
    return mQueues.back().addr();
}

void Pipeline::addStage(const std::string& name, ZR::RPtr<ZR::CM::RComponent> component,
                        ZR::CM::RQueue* output) {
    mStages.push_back(Stage{name, std::move(component), output});
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

// A stage that has failed no longer reads its input and never ends its output, so the
// stages around it would wait on their queues for ever: once one has failed, the others
// that still run are aborted.
void Pipeline::waitForStages(bool showProgress) {
    const std::chrono::milliseconds poll(showProgress ? 200 : 20);
    while (anyRunning()) {
        if (showProgress) {
            std::fprintf(stderr, "\r\033[K%s", progressLine().c_str());
            std::fflush(stderr);
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
    if (showProgress) {
        std::fprintf(stderr, "\r\033[K");
    }
}

bool Pipeline::anyRunning() const {
    for (const Stage& stage : mStages) {
        if (stage.component->getRunningThreadCount() != 0) {
            return true;
        }
    }
    return false;
}

std::string Pipeline::progressLine() const {
    std::string line;
    for (const Stage& stage : mStages) {
        if (!line.empty()) {
            line += " | ";
        }
        line += stage.name;
        if (stage.output) {
            char text[96];
            std::snprintf(text, sizeof text, " %llu fr %s [%d/%d]",
                          static_cast<unsigned long long>(stage.output->getFramesPut()),
                          humanBytes(stage.output->getBytesPut()).c_str(),
                          stage.output->getNodeCount(), mHigh);
            line += text;
        }
    }
    return line;
}

int Pipeline::run(bool showProgress, const std::function<void()>& beforeLastStage) {
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
    for (const Stage& stage : mStages) {
        const ZR::CM::RComponent& c = *stage.component;
        std::fprintf(
            out, "%-16s %s  (wall %.3f s, user %.3f s, system %.3f s)%s\n", stage.name.c_str(),
            ZR::RString(stage.component->getStatus()).c_str(), double(c.getWallTime()),
            c.getUserTime(), c.getSystemTime(),
            stage.aborted ? " aborted"
            : stage.result
                ? (std::string(" failed: ") + ZR::CM::stringWithResultCode(stage.result)).c_str()
                : "");
    }
    std::fprintf(out, "run: wall %.3f s, user %.3f s, system %.3f s\n", mWallSeconds, mUserSeconds,
                 mSystemSeconds);
}

}  // namespace cmhost
