// Permissions taken away: the log directory made read-only while the file log rotates,
// an output file or directory the exporter may not write, an input the importer may not
// read. Each scenario runs as an unprivileged user in a child process (root ignores
// permission bits) and reports back what went wrong there.
#include "support/Faults.h"
#include "support/MediaPipeline.h"
#include "support/MediaSamples.h"
#include "support/MediaTools.h"

#include "wav.exporter/WavExporter.h"
#include "wav.importer/WavImporter.h"

#include <cm/CMFileLog.h>
#include <cm/CMFrame.h>
#include <cm/CMSysConf.h>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>

using ZR::RPtr;
using namespace ZR::CM;

namespace {

// Collects the failed checks of a child's scenario as lines of text.
struct Report {
    void check(bool ok, const std::string& what) {
        if (!ok) {
            text += what + "\n";
        }
    }
    std::string text;
};

// A directory the unprivileged user owns, inside one the test owns.
std::string unprivilegedDirectory(const cmtest::TempDir& dir, const std::string& name) {
    chmod(dir.path().c_str(), 0755);
    const std::string path = dir.file(name);
    mkdir(path.c_str(), 0755);
    EXPECT_EQ(chown(path.c_str(), cmtest::kUnprivilegedId, cmtest::kUnprivilegedId), 0);
    return path;
}

}  // namespace

// The log directory turns read-only while the file log is in use: rotation cannot rename
// the full file, so the log goes on appending to it; no line written before is lost or
// overwritten.
TEST(PermissionFaultTest, ReadOnlyLogDirectoryLosesNoLines) {
    cmtest::TempDir dir;
    const std::string logs = unprivilegedDirectory(dir, "logs");
    const std::string report = cmtest::runUnprivileged([&] {
        Report r;
        cmtest::configureUtcFileLog(logs, 3, 200);
        RFileLogInterface log;
        r.check(log.init(), "init failed");
        std::string expected;
        for (int n = 0; n < 20; ++n) {
            if (n == 8) {
                r.check(chmod(logs.c_str(), 0555) == 0, "chmod failed");
            }
            const std::string message = "line " + std::to_string(n) + " of the log";
            r.check(log.log(6, 1000000000, message.c_str()) == 0, "log failed at " + message);
            expected += "Sun Sep  9 01:46:40 2001 " + message + "\n";
            std::fflush(stdout);  // the rename messages
        }
        // Before the change the log rotated once; after it, every line stays in the active
        // file.
        const std::string all =
            cmtest::readText(logs + "/app.1.log") + cmtest::readText(logs + "/app.log");
        r.check(all == expected, "the log holds:\n" + all);
        return r.text;
    });
    EXPECT_EQ(report, "");
}

// The exporter may not create its file, or may not write over an existing one: the run
// fails with kResultFileOpenFailed, saying which file; the existing file is untouched.
// The importer may not read its input: openSource() fails likewise.
TEST(PermissionFaultTest, UnwritableOutputAndUnreadableInputAreRefused) {
    cmtest::TempDir dir;
    const std::string media = unprivilegedDirectory(dir, "media");
    const std::string report = cmtest::runUnprivileged([&] {
        Report r;
        const std::string kept = media + "/kept.wav";
        cmtest::writeFile(kept, cmtest::Bytes(100, 7));
        chmod(kept.c_str(), 0444);
        const std::string closed = media + "/closed";
        mkdir(closed.c_str(), 0555);

        RPtr<RAudioDescription> description(new RAudioDescription);
        description->mChannels = 1;
        description->mBytesPerSample = 2;
        description->mSampleRate = 8000;
        const cmtest::Bytes tone = cmtest::makeTone(16, 1, 800, 0.5);
        std::vector<RPtr<RFrame>> frames{RAudioFrame::createWithData(
            cmcomponents::kLinearPCM, static_cast<unsigned int>(tone.size()),
            const_cast<unsigned char*>(tone.data()), 0, 0, ZR::ConstructionCopy)};
        for (const std::string& path : {kept, closed + "/new.wav"}) {
            RPtr<cmcomponents::RWavExporter> exporter(new cmcomponents::RWavExporter);
            const CComponentStatus status =
                cmtest::exportFrames(*exporter, path, description.addr(), frames);
            r.check(status.mExtra == static_cast<unsigned int>(kResultFileOpenFailed),
                    path + ": result " + std::to_string(status.mExtra));
            r.check(std::string(status.mInfo.c_str()) == "failed to open file: cannot open " + path,
                    path + ": " + status.mInfo.c_str());
        }
        r.check(cmtest::readFile(kept) == cmtest::Bytes(100, 7), "the kept file changed");

        chmod(kept.c_str(), 0);
        RPtr<cmcomponents::RWavImporter> importer(new cmcomponents::RWavImporter);
        std::vector<RQueue*> none;
        importer->init(cmtest::fileStream(kept, O_RDONLY), none);
        r.check(importer->openSource() == kResultFileOpenFailed, "the importer read " + kept);
        r.check(std::string(importer->getStatus().mInfo.c_str()) ==
                    "failed to open file: cannot open " + kept,
                std::string("importer: ") + importer->getStatus().mInfo.c_str());
        importer->reset();
        return r.text;
    });
    EXPECT_EQ(report, "");
}
