// Read throughput of RFileStream over a 256 MiB file, in 64 KiB reads: through the
// descriptor (one read(2) per block) and through the mapping (one memcpy per block). Beside
// them, the same reads done bare: read(2) into the buffer, and mmap with a memcpy per block.
// The file is written once into a temporary directory (under $TMPDIR, default /tmp), or
// taken from $CM_BENCH_STREAM_FILE when that names one of that size, and stays in the page
// cache, so the figures are those of the stream, not of the disk.
#include <cm/CMFileStream.h>

#include "BenchSupport.h"

#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace {

constexpr long long kFileSize = 256LL << 20;
constexpr long long kBlock = 64 << 10;

// The test file, created on first use and removed with its directory at exit.
class BenchFile {
public:
    BenchFile() {
        if (const char* given = std::getenv("CM_BENCH_STREAM_FILE"); given && *given) {
            mPath = given;
            if (std::filesystem::file_size(mPath) != kFileSize) {
                std::abort();  // the bare mapping below would fault past a shorter file
            }
            return;
        }
        mDirectory = std::make_unique<cmbench::TempDir>();
        mPath = mDirectory->path() + "/stream_read.bin";
        std::vector<unsigned char> block(kBlock);
        for (size_t i = 0; i < block.size(); ++i) {
            block[i] = static_cast<unsigned char>(i * 31);
        }
        const int fd = ::open(mPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        for (long long done = 0; fd != -1 && done < kFileSize; done += kBlock) {
            if (::write(fd, block.data(), block.size()) != kBlock) {
                std::abort();
            }
        }
        ::close(fd);
    }
    const std::string& path() const { return mPath; }

private:
    std::unique_ptr<cmbench::TempDir> mDirectory;
    std::string mPath;
};

const BenchFile& benchFile() {
    static const BenchFile file;
    return file;
}

// Reads the whole file per iteration. A fresh stream per iteration (as an importer opens
// its source) pays for the open and, when mapped, for faulting in every page; a reused
// stream seeks back to the start and shows the copying alone.
void readWholeFile(benchmark::State& state, unsigned char mode, bool reuse) {
    const ZR::RURI uri(benchFile().path().c_str());
    std::vector<unsigned char> buffer(kBlock);
    ZR::CM::RFileStream kept(uri, O_RDONLY, mode);
    if (reuse && kept.open() != 0) {
        state.SkipWithError("cannot open the test file");
        return;
    }
    for (auto _ : state) {
        ZR::CM::RFileStream fresh(uri, O_RDONLY, mode);
        ZR::CM::RFileStream& stream = reuse ? kept : fresh;
        if (reuse ? stream.lseek(0, 0) != 0 : stream.open() != 0) {
            state.SkipWithError("cannot open the test file");
            return;
        }
        long long total = 0;
        for (long long got; (got = stream.read(buffer.data(), kBlock)) > 0;) {
            total += got;
        }
        benchmark::DoNotOptimize(buffer.data());
        if (total != kFileSize) {
            state.SkipWithError("short read");
            return;
        }
    }
    state.SetBytesProcessed(state.iterations() * kFileSize);
}

void BM_StreamReadPlain(benchmark::State& state) {
    readWholeFile(state, 0, false);
}
void BM_StreamReadMapped(benchmark::State& state) {
    readWholeFile(state, 1, false);
}
void BM_StreamRereadPlain(benchmark::State& state) {
    readWholeFile(state, 0, true);
}
void BM_StreamRereadMapped(benchmark::State& state) {
    readWholeFile(state, 1, true);
}

// The bare system calls, opening the file afresh per iteration like the fresh streams.
void BM_BareRead(benchmark::State& state) {
    std::vector<unsigned char> buffer(kBlock);
    for (auto _ : state) {
        const int fd = ::open(benchFile().path().c_str(), O_RDONLY);
        long long total = 0;
        for (ssize_t got; fd != -1 && (got = ::read(fd, buffer.data(), kBlock)) > 0;) {
            total += got;
        }
        benchmark::DoNotOptimize(buffer.data());
        ::close(fd);
        if (total != kFileSize) {
            state.SkipWithError("cannot read the test file");
            return;
        }
    }
    state.SetBytesProcessed(state.iterations() * kFileSize);
}

void BM_BareMmapMemcpy(benchmark::State& state) {
    std::vector<unsigned char> buffer(kBlock);
    for (auto _ : state) {
        const int fd = ::open(benchFile().path().c_str(), O_RDONLY);
        void* const map =
            fd == -1 ? MAP_FAILED : ::mmap(nullptr, kFileSize, PROT_READ, MAP_PRIVATE, fd, 0);
        if (fd != -1) {
            ::close(fd);
        }
        if (map == MAP_FAILED) {
            state.SkipWithError("cannot map the test file");
            return;
        }
        for (long long offset = 0; offset < kFileSize; offset += kBlock) {
            std::memcpy(buffer.data(), static_cast<const unsigned char*>(map) + offset, kBlock);
            benchmark::ClobberMemory();
        }
        ::munmap(map, kFileSize);
    }
    state.SetBytesProcessed(state.iterations() * kFileSize);
}

BENCHMARK(BM_StreamReadPlain)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_StreamReadMapped)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_StreamRereadPlain)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_StreamRereadMapped)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_BareRead)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_BareMmapMemcpy)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
