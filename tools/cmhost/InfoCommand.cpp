// cmhost info MEDIA
//
// Opens the media through the stream factory with the importers its file extension calls
// for, highest priority first, until one reads it, and prints the movie it describes: its metadata
// and each track. Track fields are read the way the sample importers fill them: mTrackValue the
// data format, mTrackReal the rate, mTrackSize the count of sample frames or pictures, and
// mKindValue1/2 the channels and bits of audio (0 bits: coded audio without a fixed sample
// size) or the width and height of video.
#include "Assembly.h"
#include "CommandLine.h"
#include "Commands.h"
#include "Host.h"

#include <cstdio>

namespace cmhost {

namespace {

const char kHelp[] =
    "usage: cmhost info MEDIA\n"
    "\n"
    "  MEDIA is a path, a file:// URI or any URI a reader plug-in serves; the importer\n"
    "  is chosen by the file extension";

void printMovie(const ZR::CM::RMovieInfo& movie) {
    for (const auto& entry : movie.getMetaData()) {
        std::printf("  %s: %s\n", entry.first.c_str(), entry.second.c_str());
    }
    std::printf("tracks: %zu\n", movie.mTracks.size());
    for (const ZR::CM::RTrackInfo* track : movie.mTracks) {
        std::printf("  track %u: %s %s, start %.3f s, duration %.3f s", track->mTrackID,
                    fourccText(track->mMediaType).c_str(), fourccText(track->mTrackValue).c_str(),
                    double(track->mTrackStart), double(track->mTrackDuration));
        if (const auto* audio = dynamic_cast<const ZR::CM::RAudioTrackInfo*>(track)) {
            std::printf(", %g Hz, %u channels", track->mTrackReal, audio->mKindValue1);
            if (audio->mKindValue2 != 0) {
                std::printf(", %u bits", audio->mKindValue2);
            }
            std::printf(", %llu sample frames", track->mTrackSize);
        } else if (const auto* video = dynamic_cast<const ZR::CM::RVideoTrackInfo*>(track)) {
            std::printf(", %ux%u, %g fps, %llu pictures", video->mKindValue1, video->mKindValue2,
                        track->mTrackReal, track->mTrackSize);
        }
        std::printf("\n");
    }
}

}  // namespace

int runInfo(const GlobalOptions& global, const Words& args) {
    const CommandLine line(args, kHelp, {});
    if (line.has("--help")) {
        std::puts(kHelp);
        return 0;
    }
    line.expectPositionals({"MEDIA"});
    const std::string media = line.positional(0, "MEDIA");
    const Host host(global.config, global.verbose);
    const Input source = openInput(host, media);
    std::printf("media: %s\nimporter: %s\n", withoutCredentials(media).c_str(),
                source.info->directoryName.c_str());
    if (source.movie) {
        printMovie(*source.movie);
    }
    return 0;
}

}  // namespace cmhost
