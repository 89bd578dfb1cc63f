// The media tools of the system (ffmpeg, ffprobe, sox) as independent judges of the files
// the components write, and small file helpers around them. A tool that is missing makes
// the calling test fail: the tools come with scripts/install-deps.sh.
#ifndef CM_TESTS_SUPPORT_MEDIATOOLS_H
#define CM_TESTS_SUPPORT_MEDIATOOLS_H

#include <map>
#include <string>
#include <vector>

namespace cmtest {

struct ToolRun {
    int status = -1;     // the exit status; -1 when the command could not run
    std::string output;  // what it wrote to standard output
    std::string errors;  // what it wrote to standard error, where captured
};

// Runs a shell command line, capturing standard output (standard error is left alone).
ToolRun runCommand(const std::string& command);
// The same, capturing standard error too.
ToolRun runCapturing(const std::string& command);
// True when the program is found on PATH.
bool haveTool(const std::string& name);
// Quotes a path for the shell.
std::string shellQuote(const std::string& text);

// ffprobe's view of the first stream of a file: the key=value lines of -show_streams,
// after decoding every frame when countFrames is set (nb_read_frames). Empty when ffprobe
// fails on the file.
std::map<std::string, std::string> probeStream(const std::string& path, bool countFrames);
// ffprobe's view of every stream of a file, in stream order (see probeStream); with
// countFrames also the packets read (nb_read_packets).
std::vector<std::map<std::string, std::string>> probeStreams(const std::string& path,
                                                             bool countFrames);
// One packet as ffprobe lists it: stream, presentation and decode time and duration in
// seconds ("N/A" when absent), and whether it is a key frame.
struct ProbedPacket {
    int stream = -1;
    std::string pts;
    std::string dts;
    std::string duration;
    bool key = false;
};
std::vector<ProbedPacket> probePackets(const std::string& path);
// Runs ffmpeg with the arguments (its inputs and options) writing path; false when it fails.
bool makeWithFfmpeg(const std::string& arguments, const std::string& path);
// The average PSNR (dB) of the pictures of distorted against those of reference, by
// ffmpeg's psnr filter; infinity for identical pictures, NaN when ffmpeg fails.
double psnrWithFfmpeg(const std::string& distorted, const std::string& reference);
// What ffmpeg decodes from a file, written as raw data of the given format (ffmpeg's -f:
// s16le, u8, s24le, rawvideo); empty when ffmpeg fails.
std::vector<unsigned char> decodeWithFfmpeg(const std::string& path, const std::string& format);

std::vector<unsigned char> readFile(const std::string& path);
void writeFile(const std::string& path, const std::vector<unsigned char>& bytes);

}  // namespace cmtest

#endif
