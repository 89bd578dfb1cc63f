#include "support/MediaTools.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>

namespace cmtest {

ToolRun runCommand(const std::string& command) {
    ToolRun run;
    FILE* pipe = popen(command.c_str(), "r");
    if (!pipe) {
        return run;
    }
    char buffer[65536];
    std::size_t n;
    while ((n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0) {
        run.output.append(buffer, n);
    }
    const int status = pclose(pipe);
    run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return run;
}

namespace {

ToolRun runCapturingOnce(const std::string& command) {
    char path[] = "/tmp/cm-errors-XXXXXX";
    const int fd = mkstemp(path);
    if (fd < 0) {
        return ToolRun();
    }
    close(fd);
    ToolRun run = runCommand("{ " + command + "; } 2>" + path);
    std::ifstream in(path);
    run.errors.assign(std::istreambuf_iterator<char>(in), {});
    unlink(path);
    return run;
}

}  // namespace

// Under load, clang 14's LeakSanitizer now and then crashes in its own thread-suspending
// code while checking a process that ended cleanly ("Tracer caught signal 11", then "has
// encountered a fatal error"). That is the runtime failing, not the program, so such a run
// is repeated once; a leak the check finds is a different report and still fails.
ToolRun runCapturing(const std::string& command) {
    ToolRun run = runCapturingOnce(command);
    if (run.errors.find("LeakSanitizer has encountered a fatal error") != std::string::npos) {
        run = runCapturingOnce(command);
    }
    return run;
}

bool haveTool(const std::string& name) {
    return runCommand("command -v " + shellQuote(name) + " >/dev/null 2>&1").status == 0;
}

std::string shellQuote(const std::string& text) {
    std::string quoted = "'";
    for (const char c : text) {
        quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    }
    return quoted + "'";
}

std::map<std::string, std::string> probeStream(const std::string& path, bool countFrames) {
    std::vector<std::map<std::string, std::string>> streams = probeStreams(path, countFrames);
    return streams.empty() ? std::map<std::string, std::string>() : streams.front();
}

std::vector<std::map<std::string, std::string>> probeStreams(const std::string& path,
                                                             bool countFrames) {
    const ToolRun run = runCommand("ffprobe -v error " +
                                   std::string(countFrames ? "-count_frames -count_packets " : "") +
                                   "-show_streams -of default " + shellQuote(path));
    std::vector<std::map<std::string, std::string>> streams;
    if (run.status != 0) {
        return streams;
    }
    std::istringstream lines(run.output);
    std::string line;
    while (std::getline(lines, line)) {
        if (line == "[STREAM]") {
            streams.emplace_back();
        }
        const std::size_t eq = line.find('=');
        if (eq != std::string::npos && !streams.empty()) {
            streams.back()[line.substr(0, eq)] = line.substr(eq + 1);
        }
    }
    return streams;
}

std::vector<ProbedPacket> probePackets(const std::string& path) {
    const ToolRun run = runCommand(
        "ffprobe -v error -show_entries packet=stream_index,pts_time,dts_time,duration_time,flags "
        "-of csv=p=0 " +
        shellQuote(path));
    std::vector<ProbedPacket> packets;
    std::istringstream lines(run.status == 0 ? run.output : "");
    std::string line;
    while (std::getline(lines, line)) {
        if (line.empty()) {
            continue;  // what ffprobe writes for a packet's side data
        }
        std::istringstream fields(line);
        ProbedPacket packet;
        std::string stream, flags;
        std::getline(fields, stream, ',');
        std::getline(fields, packet.pts, ',');
        std::getline(fields, packet.dts, ',');
        std::getline(fields, packet.duration, ',');
        std::getline(fields, flags, ',');
        packet.stream = std::atoi(stream.c_str());
        packet.key = flags.find('K') != std::string::npos;
        packets.push_back(packet);
    }
    return packets;
}

bool makeWithFfmpeg(const std::string& arguments, const std::string& path) {
    return runCommand("ffmpeg -v error -nostdin -y " + arguments + " " + shellQuote(path) +
                      " </dev/null")
               .status == 0;
}

double psnrWithFfmpeg(const std::string& distorted, const std::string& reference) {
    const ToolRun run = runCommand("ffmpeg -nostdin -i " + shellQuote(distorted) + " -i " +
                                   shellQuote(reference) + " -lavfi psnr -f null - 2>&1");
    const std::size_t at = run.output.rfind("average:");
    if (run.status != 0 || at == std::string::npos) {
        return NAN;
    }
    const std::string value = run.output.substr(at + 8, run.output.find(' ', at) - at - 8);
    return value == "inf" ? INFINITY : std::strtod(value.c_str(), nullptr);
}

std::vector<unsigned char> decodeWithFfmpeg(const std::string& path, const std::string& format) {
    const ToolRun run =
        runCommand("ffmpeg -v error -nostdin -i " + shellQuote(path) + " -f " + format + " -");
    if (run.status != 0) {
        return {};
    }
    return std::vector<unsigned char>(run.output.begin(), run.output.end());
}

std::vector<unsigned char> readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::vector<unsigned char>(std::istreambuf_iterator<char>(in), {});
}

void writeFile(const std::string& path, const std::vector<unsigned char>& bytes) {
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
}

}  // namespace cmtest
