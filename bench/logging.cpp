// Lines per second through the file log: the destination on its own (guarded by a mutex,
// as the logger guards its fan-out) with one file and no rotation, and rotating at 1 MiB
// through five files; the whole logger path (logf: formatting, the mutex, the fan-out) at
// 1 MiB; each on one and two threads. For comparison, a plain write(2) of the same
// finished lines, and, when spdlog is installed, its file sinks flushing every line.
// Every variant makes one write(2) per line; nothing is synced to the disk, so the
// figures are those of the code and the page cache. Files go to a temporary directory
// under $TMPDIR (default /tmp), removed at exit.
#include <cm/CMFileLog.h>
#include <cm/CMLogger.h>
#include <cm/CMSysConf.h>

#include "BenchSupport.h"

#include <benchmark/benchmark.h>

#ifdef CM_HAVE_SPDLOG
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/sinks/rotating_file_sink.h>
#include <spdlog/spdlog.h>
#endif

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <ctime>
#include <iostream>
#include <memory>
#include <mutex>
#include <string>

using ZR::CM::RFileLogInterface;
using ZR::CM::RLogger;
using ZR::CM::sys_conf;

namespace {

constexpr const char* kMessage = "component 7 decoded frame 123456 in 3.25 ms";
constexpr int kMiB = 1 << 20;
constexpr int kInfo = 6;

const cmbench::TempDir& benchDirectory() {
    static const cmbench::TempDir directory;
    return directory;
}

// The file log's settings for a destination or logger created next.
void configureFileLog(const std::string& name, int files, int size) {
    sys_conf& conf = sys_conf::instance();
    conf.set_value("common.logging.filelog-path", benchDirectory().directory(name).c_str());
    conf.set_int("common.logging.filelog-priority", kInfo);
    conf.set_int("common.logging.filelog-num-rotation", files);
    conf.set_int("common.logging.filelog-filesize", size);
}

struct FileTarget {
    FileTarget(const char* name, int files, int size) {
        configureFileLog(name, files, size);
        log = new RFileLogInterface();
        log->init();
    }
    ZR::CMutex mutex;  // serialises log(), as the logger's mutex does
    ZR::RPtr<RFileLogInterface> log;
};

// One file, so no rotation; at 1 GiB it would start over at the file's beginning.
FileTarget& singleFile() {
    static FileTarget target("single", 1, 1024 * kMiB);
    return target;
}

FileTarget& rotatingFile() {
    static FileTarget target("rotating", 5, kMiB);
    return target;
}

void fileLog(benchmark::State& state, FileTarget& target) {
    for (auto _ : state) {
        const int now = static_cast<int>(std::time(nullptr));
        const std::lock_guard<ZR::CMutex> lock(target.mutex);
        target.log->log(kInfo, now, kMessage);
    }
    state.SetItemsProcessed(state.iterations());
}

void BM_FileLogNoRotation(benchmark::State& state) {
    fileLog(state, singleFile());
}
BENCHMARK(BM_FileLogNoRotation)->Threads(1)->Threads(2)->UseRealTime();

void BM_FileLogRotating1MiB(benchmark::State& state) {
    fileLog(state, rotatingFile());
}
BENCHMARK(BM_FileLogRotating1MiB)->Threads(1)->Threads(2)->UseRealTime();

RLogger& logger() {
    static RLogger* const instance = [] {
        configureFileLog("logger", 5, kMiB);
        return RLogger::getDefault();
    }();
    return *instance;
}

void BM_LoggerLogfRotating1MiB(benchmark::State& state) {
    RLogger& log = logger();
    int frame = 0;
    for (auto _ : state) {
        log.logf(kInfo, "component %d decoded frame %d in %.2f ms", 7, ++frame, 3.25);
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_LoggerLogfRotating1MiB)->Threads(1)->Threads(2)->UseRealTime();

// The same finished line as the file log writes, appended with one write(2) each.
void BM_PlainWrite(benchmark::State& state) {
    static const int fd = ::open((benchDirectory().directory("plain") + "/plain.log").c_str(),
                                 O_WRONLY | O_APPEND | O_CREAT, 0644);
    static const std::string line = [] {
        const std::time_t now = std::time(nullptr);
        char stamp[32];
        ctime_r(&now, stamp);
        stamp[24] = ' ';
        return std::string(stamp, 25) + kMessage + "\n";
    }();
    for (auto _ : state) {
        if (::write(fd, line.data(), line.size()) != static_cast<ssize_t>(line.size())) {
            state.SkipWithError("write failed");
            break;
        }
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_PlainWrite)->Threads(1)->Threads(2)->UseRealTime();

#ifdef CM_HAVE_SPDLOG
// The ctime-like pattern of the file log, and a flush (one write(2)) after every line.
std::shared_ptr<spdlog::logger> spdlogFile(std::shared_ptr<spdlog::sinks::sink> sink) {
    auto log = std::make_shared<spdlog::logger>("bench", std::move(sink));
    log->set_pattern("%c %v");
    log->flush_on(spdlog::level::trace);
    return log;
}

void spdlogLines(benchmark::State& state, spdlog::logger& log) {
    for (auto _ : state) {
        log.info(kMessage);
    }
    state.SetItemsProcessed(state.iterations());
}

void BM_SpdlogBasicFileSink(benchmark::State& state) {
    static const auto log = spdlogFile(std::make_shared<spdlog::sinks::basic_file_sink_mt>(
        benchDirectory().directory("spdlog") + "/basic.log"));
    spdlogLines(state, *log);
}
BENCHMARK(BM_SpdlogBasicFileSink)->Threads(1)->Threads(2)->UseRealTime();

void BM_SpdlogRotatingFileSink1MiB(benchmark::State& state) {
    static const auto log = spdlogFile(std::make_shared<spdlog::sinks::rotating_file_sink_mt>(
        benchDirectory().directory("spdlog-rotating") + "/rotating.log", kMiB, 4));
    spdlogLines(state, *log);
}
BENCHMARK(BM_SpdlogRotatingFileSink1MiB)->Threads(1)->Threads(2)->UseRealTime();
#endif

}  // namespace

// Rotation prints every rename on standard output: that goes to /dev/null, and the
// report to standard error instead.
int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    benchmark::ConsoleReporter report(isatty(STDERR_FILENO)
                                          ? benchmark::ConsoleReporter::OO_Defaults
                                          : benchmark::ConsoleReporter::OO_Tabular);
    report.SetOutputStream(&std::cerr);
    report.SetErrorStream(&std::cerr);
    if (!std::freopen("/dev/null", "w", stdout)) {
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks(&report);
    benchmark::Shutdown();
    return 0;
}
