#include <cm/CMTrackInfo.h>

#include <zr/RPtr.h>
#include <zr/ZRTypes.h>

namespace ZR {
namespace CM {

namespace {

constexpr unsigned int kVideo = fourcc("vide");
constexpr unsigned int kAudio = fourcc("audi");
constexpr unsigned int kHint = fourcc("hint");

CData& writeTrack(CData& data, const RTrackInfo& track) {
    return data << track.mTrackID << track.mMediaType << track.mTrackValue << track.mTrackStart
                << track.mTrackDuration << track.mTrackReal << track.mTrackSize;
}

CData& readTrack(CData& data, RTrackInfo& track) {
    return data >> track.mTrackID >> track.mMediaType >> track.mTrackValue >> track.mTrackStart >>
           track.mTrackDuration >> track.mTrackReal >> track.mTrackSize;
}

// Video and audio tracks share their kind fields.
template <typename KindTrack>
CData& writeKindFields(CData& data, const KindTrack& track) {
    return data << track.mKindValue1 << track.mKindValue2 << track.mKindFixed;
}

template <typename KindTrack>
CData& readKindTrack(CData& data, KindTrack& track) {
    return readTrack(data, track) >> track.mKindValue1 >> track.mKindValue2 >> track.mKindFixed;
}

CData& writeHintFields(CData& data, const RHintTrackInfo& track) {
    return data << track.mHintValue << track.mHintName << track.mHintLines;
}

// In a movie the type word, not the class, chooses the form of a track; a type without a
// form of its own (text) is carried as the type word alone. A track whose class lacks the
// fields of its form (a hint track built as "audi", a plain RTrackInfo given a type) is
// written with those of a default track of the form's kind.
void writeTrackInForm(CData& data, const RTrackInfo& track) {
    switch (track.mMediaType) {
        case kVideo:
        case kAudio:
            writeTrack(data, track);
            if (const auto* video = dynamic_cast<const RVideoTrackInfo*>(&track)) {
                writeKindFields(data, *video);
            } else if (const auto* audio = dynamic_cast<const RAudioTrackInfo*>(&track)) {
                writeKindFields(data, *audio);
            } else {
                writeKindFields(data, RAudioTrackInfo());
            }
            break;
        case kHint: {
            writeTrack(data, track);
            const auto* hint = dynamic_cast<const RHintTrackInfo*>(&track);
            writeHintFields(data, hint ? *hint : RHintTrackInfo());
            break;
        }
        default:
            break;
    }
}

// Reads one track of the given kind; null when the stream ran out before it was complete.
// The track's form repeats its media type; a stream whose copy disagrees with the type word
// that chose the form is corrupt, and the type word wins, so that a track's type always
// names its class: whoever picks the tracks of one type may treat them as that kind.
template <typename Track>
RPtr<RTrackInfo> readNewTrack(CData& data, unsigned int mediaType) {
    RPtr<Track> track(new Track());
    data >> *track;
    if (data.failed()) {
        return nullptr;
    }
    track->mMediaType = mediaType;
    return RPtr<RTrackInfo>(track);
}

RPtr<RTrackInfo> readTrackOfType(CData& data, unsigned int mediaType) {
    switch (mediaType) {
        case kVideo:
            return readNewTrack<RVideoTrackInfo>(data, mediaType);
        case kAudio:
            return readNewTrack<RAudioTrackInfo>(data, mediaType);
        case kHint:
            return readNewTrack<RHintTrackInfo>(data, mediaType);
        default:
            return nullptr;
    }
}

}  // namespace

RTrackInfo::RTrackInfo(unsigned int trackID, unsigned int mediaType, unsigned int value,
                       CTimeStamp start, CTimeStamp duration, double real, unsigned long long size)
    : mTrackID(trackID),
      mMediaType(mediaType),
      mTrackValue(value),
      mTrackStart(start),
      mTrackDuration(duration),
      mTrackReal(real),
      mTrackSize(size) {}

RTrackInfo::~RTrackInfo() = default;

RVideoTrackInfo::RVideoTrackInfo() : RTrackInfo(kVideo) {}

RVideoTrackInfo::RVideoTrackInfo(unsigned int trackID, unsigned int value, CTimeStamp start,
                                 CTimeStamp duration, double real, unsigned long long size,
                                 unsigned int kindValue1, unsigned int kindValue2,
                                 Fixed64 kindFixed)
    : RTrackInfo(trackID, kVideo, value, start, duration, real, size),
      mKindValue1(kindValue1),
      mKindValue2(kindValue2),
      mKindFixed(kindFixed) {}

RAudioTrackInfo::RAudioTrackInfo() : RTrackInfo(kAudio) {}

RAudioTrackInfo::RAudioTrackInfo(unsigned int trackID, unsigned int value, CTimeStamp start,
                                 CTimeStamp duration, double real, unsigned long long size,
                                 unsigned int kindValue1, unsigned int kindValue2,
                                 Fixed64 kindFixed)
    : RTrackInfo(trackID, kAudio, value, start, duration, real, size),
      mKindValue1(kindValue1),
      mKindValue2(kindValue2),
      mKindFixed(kindFixed) {}

RHintTrackInfo::RHintTrackInfo() : RTrackInfo(kHint) {}

RHintTrackInfo::RHintTrackInfo(unsigned int trackID, unsigned int value, CTimeStamp start,
                               CTimeStamp duration, double real, unsigned long long size,
                               unsigned int hintValue, const CString& hintName,
                               const std::vector<CString>& hintLines)
    : RTrackInfo(trackID, kAudio, value, start, duration, real, size),
      mHintValue(hintValue),
      mHintName(hintName),
      mHintLines(hintLines) {}

RMovieInfo::RMovieInfo(int expectedTracks) {
    // A negative count converts to a size beyond max_size(), which reserve() refuses.
    mTracks.reserve(static_cast<std::size_t>(expectedTracks));
}

RMovieInfo::RMovieInfo(const RMovieInfo& other)
    : zrbase::object_refcount(),
      CMetaData(other),
      mMovieDuration(other.mMovieDuration),
      mMovieValue1(other.mMovieValue1),
      mMovieValue2(other.mMovieValue2),
      mMovieName(other.mMovieName),
      mTracks(other.mTracks) {
    for (RTrackInfo* track : mTracks) {
        track->retain();
    }
}

RMovieInfo::~RMovieInfo() {
    for (RTrackInfo* track : mTracks) {
        track->release();
    }
}

void RMovieInfo::addTrack(RTrackInfo* track) {
    // A null track would be dereferenced by every later walk over the tracks.
    if (track) {
        mTracks.push_back(track);
    }
}

std::vector<RTrackInfo*> RMovieInfo::getTracksForMedia(unsigned int mediaType) const {
    std::vector<RTrackInfo*> tracks;
    for (RTrackInfo* track : mTracks) {
        if (mediaType == kAnyFourCC || track->mMediaType == mediaType) {
            tracks.push_back(track);
        }
    }
    return tracks;
}

void RMovieInfo::print() const {
    for (const RTrackInfo* track : mTracks) {
        track->print();
    }
}

CData& operator<<(CData& data, const RVideoTrackInfo& track) {
    return writeKindFields(writeTrack(data, track), track);
}

CData& operator>>(CData& data, RVideoTrackInfo& track) {
    return readKindTrack(data, track);
}

CData& operator<<(CData& data, const RAudioTrackInfo& track) {
    return writeKindFields(writeTrack(data, track), track);
}

CData& operator>>(CData& data, RAudioTrackInfo& track) {
    return readKindTrack(data, track);
}

CData& operator<<(CData& data, const RHintTrackInfo& track) {
    return writeHintFields(writeTrack(data, track), track);
}

CData& operator>>(CData& data, RHintTrackInfo& track) {
    return readTrack(data, track) >> track.mHintValue >> track.mHintName >> track.mHintLines;
}

CData& operator<<(CData& data, const RMovieInfo& movie) {
    data << CTimeStamp(movie.mMovieDuration) << movie.mMovieValue1 << movie.mMovieValue2
         << movie.mMovieName << static_cast<unsigned int>(movie.mTracks.size());
    for (const RTrackInfo* track : movie.mTracks) {
        data << track->mMediaType;
        writeTrackInForm(data, *track);
    }
    return data;
}

CData& operator>>(CData& data, RMovieInfo& movie) {
    CTimeStamp duration;
    unsigned int count = 0;
    data >> duration >> movie.mMovieValue1 >> movie.mMovieValue2 >> movie.mMovieName >> count;
    movie.mMovieDuration = duration;
    // Every track takes at least its type word, so a corrupt count ends with the stream.
    for (unsigned int i = 0; i < count && !data.failed(); ++i) {
        unsigned int mediaType = 0;
        data >> mediaType;
        if (RPtr<RTrackInfo> track = readTrackOfType(data, mediaType)) {
            track->retain();  // the reference the movie takes over
            movie.addTrack(track.addr());
        }
    }
    return data;
}

}  // namespace CM
}  // namespace ZR
