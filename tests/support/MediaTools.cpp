#include "support/MediaTools.h"

#include <sys/wait.h>

#include <cstdio>
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
    const ToolRun run = runCommand(
        "ffprobe -v error " + std::string(countFrames ? "-count_frames " : "") +
        "-select_streams 0 -show_streams -of default=noprint_wrappers=1 " + shellQuote(path));
    std::map<std::string, std::string> values;
    if (run.status != 0) {
        return values;
    }
    std::istringstream lines(run.output);
    std::string line;
    while (std::getline(lines, line)) {
        const std::size_t eq = line.find('=');
        if (eq != std::string::npos) {
            values[line.substr(0, eq)] = line.substr(eq + 1);
        }
    }
    return values;
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
