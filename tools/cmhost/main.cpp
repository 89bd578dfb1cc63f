// cmhost: finds components, assembles them into pipelines and runs them.
//
//   cmhost [--config FILE] [-v] COMMAND [ARGS...]
//
// Every failure is one line on standard error and a non-zero exit status: 2 for a mistake
// in the command line, whose line is followed by the usage of the command concerned, 1 for
// anything else.
#include "CommandLine.h"
#include "Commands.h"
#include "Host.h"

#include <cm/cm.h>

#include <cstdio>
#include <cstring>
#include <functional>
#include <map>

namespace {

const char kUsage[] =
    "usage: cmhost [--config FILE] [-v] COMMAND [ARGS...]\n"
    "\n"
    "commands:\n"
    "  components [--kind KIND] [--check]   list the installed components; --check loads\n"
    "                                       each and fails when one cannot load\n"
    "  info MEDIA                           show the movie and its tracks\n"
    "  convert INPUT OUTPUT [--video CODEC[:...]] [--audio CODEC[:...]]\n"
    "          [--filter NAME[:key=value,...]]... [--no-video] [--no-audio]\n"
    "                                       import, decode, filter, encode and export\n"
    "  generate tone|video OUTPUT [...]     write a test tone or test picture sequence\n"
    "  stream INPUT --rtp HOST:PORT [--sdp FILE]\n"
    "                                       send the audio of INPUT as RTP\n"
    "  rtsp URL [--user U --password P] [--method M]\n"
    "                                       send one RTSP request, print the response\n"
    "\n"
    "options:\n"
    "  --config FILE   the system configuration (default: share/cm/cm.conf installed with\n"
    "                  cmhost)\n"
    "  -v              mirror log messages to standard error\n"
    "  --version       the versions of cmhost and of the libraries it runs on\n"
    "  --help          this text; COMMAND --help describes one command\n";

using Command = std::function<int(const cmhost::GlobalOptions&, const cmhost::Words&)>;

const std::map<std::string, Command>& commands() {
    static const std::map<std::string, Command> table = {
        {"components", cmhost::runComponents}, {"info", cmhost::runInfo},
        {"convert", cmhost::runConvert},       {"generate", cmhost::runGenerate},
        {"stream", cmhost::runStream},         {"rtsp", cmhost::runRtsp},
    };
    return table;
}

// The libraries are the ones the loader found, which need not be those cmhost was built
// with.
void printVersions() {
    std::printf("cmhost %s\nlibzr %s\nlibzrcore %s\nlibcm %s\n", CMHOST_VERSION, ZR::version(),
                zrcore::version(), ZR::CM::version());
}

cmhost::UsageError usageError(const std::string& message) {
    return cmhost::UsageError(message, cmhost::usageOf(kUsage));
}

}  // namespace

int main(int argc, char** argv) {
    cmhost::GlobalOptions global;
    int i = 1;
    try {
        for (; i < argc && argv[i][0] == '-'; ++i) {
            const std::string word = argv[i];
            if (word == "--help" || word == "-h") {
                std::fputs(kUsage, stdout);
                return 0;
            }
            if (word == "--version") {
                printVersions();
                return 0;
            }
            if (word == "-v") {
                global.verbose = true;
            } else if (word == "--config" && i + 1 < argc) {
                global.config = argv[++i];
            } else if (word.rfind("--config=", 0) == 0) {
                global.config = word.substr(std::strlen("--config="));
            } else {
                throw usageError("unknown option " + word);
            }
        }
        if (i >= argc) {
            throw usageError("missing COMMAND (cmhost --help lists them)");
        }
        const auto command = commands().find(argv[i]);
        if (command == commands().end()) {
            throw usageError(std::string("unknown command ") + argv[i]);
        }
        return command->second(global, cmhost::Words(argv + i + 1, argv + argc));
    } catch (const cmhost::UsageError& e) {
        std::fprintf(stderr, "cmhost: %s\n", e.what());
        if (!e.usage().empty()) {
            std::fprintf(stderr, "%s\n", e.usage().c_str());
        }
        return 2;
    } catch (const cmhost::HostError& e) {
        std::fprintf(stderr, "cmhost: %s: %s%s%s\n", e.what(),
                     ZR::CM::stringWithResultCode(e.code()), e.detail().empty() ? "" : ": ",
                     e.detail().c_str());
        return 1;
    } catch (const ZR::CException& e) {
        std::fprintf(stderr, "cmhost: %s\n", e.getMessage());
        return 1;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "cmhost: %s\n", e.what());
        return 1;
    }
}
