// What an importer finds in a source: a movie (RMovieInfo) with its overall numbers and a
// list of tracks (RTrackInfo and its video, audio, text and hint kinds), each with its own
// numbers. Exporters ask for it, components pick the tracks of one media kind, and the
// information travels between processes in its ZR::CData form.
//
// The library stores, copies and serializes the importer's values without interpreting
// them. Every field is public data.
//
// Ownership: tracks and movies are reference counted and start with count 0. A movie owns
// one reference to each of its tracks and releases them when it is destroyed.
//
// Threads: filled by the importer's thread, then read-only; no lock.
#ifndef CM_CMTRACKINFO_H
#define CM_CMTRACKINFO_H

#include <cm/CMMetaData.h>
#include <zr/CBuffer.h>
#include <zr/CData.h>
#include <zr/CTimeStamp.h>
#include <zrbase/object_refcount.h>

#include <vector>

namespace ZR {
namespace CM {

class RTrackInfo : public zrbase::object_refcount {
public:
    explicit RTrackInfo(unsigned int mediaType = 0) : mMediaType(mediaType) {}
    RTrackInfo(unsigned int trackID, unsigned int mediaType, unsigned int value, CTimeStamp start,
               CTimeStamp duration, double real, unsigned long long size);
    RTrackInfo(const RTrackInfo&) = default;
    ~RTrackInfo() override;

    // A debugging hook; prints nothing.
    virtual void print() const {}

    unsigned int mTrackID = 0;
    unsigned int mMediaType = 0;  // "vide", "audi" or "hint"
    unsigned int mTrackValue = 0;
    CTimeStamp mTrackStart;
    CTimeStamp mTrackDuration;
    double mTrackReal = 0;
    unsigned long long mTrackSize = 0;
};

class RVideoTrackInfo : public RTrackInfo {
public:
    RVideoTrackInfo();
    RVideoTrackInfo(unsigned int trackID, unsigned int value, CTimeStamp start, CTimeStamp duration,
                    double real, unsigned long long size, unsigned int kindValue1,
                    unsigned int kindValue2, Fixed64 kindFixed);
    RVideoTrackInfo(const RVideoTrackInfo&) = default;

    unsigned int mKindValue1 = 0;
    unsigned int mKindValue2 = 0;
    Fixed64 mKindFixed;
};

class RAudioTrackInfo : public RTrackInfo {
public:
    RAudioTrackInfo();
    RAudioTrackInfo(unsigned int trackID, unsigned int value, CTimeStamp start, CTimeStamp duration,
                    double real, unsigned long long size, unsigned int kindValue1,
                    unsigned int kindValue2, Fixed64 kindFixed);
    RAudioTrackInfo(const RAudioTrackInfo&) = default;

    unsigned int mKindValue1 = 0;
    unsigned int mKindValue2 = 0;
    Fixed64 mKindFixed;
};

// Media type 0 unless the importer sets one. A movie carries a text track as its media
// type alone, so text tracks do not survive serialization.
class RTextTrackInfo : public RTrackInfo {
public:
    RTextTrackInfo() = default;
    RTextTrackInfo(const RTextTrackInfo&) = default;
};

class RHintTrackInfo : public RTrackInfo {
public:
    RHintTrackInfo();
    // Sets the media type to "audi", not "hint": a movie writes such a track in the audio
    // form (without the hint fields) and reads it back as an RAudioTrackInfo. Only a
    // default-constructed hint track travels as a hint track.
    RHintTrackInfo(unsigned int trackID, unsigned int value, CTimeStamp start, CTimeStamp duration,
                   double real, unsigned long long size, unsigned int hintValue,
                   const CString& hintName, const std::vector<CString>& hintLines);
    RHintTrackInfo(const RHintTrackInfo&) = default;

    unsigned int mHintValue = 0;
    CString mHintName;
    std::vector<CString> mHintLines;
};

class RMovieInfo : public zrbase::object_refcount, public CMetaData {
public:
    RMovieInfo() = default;
    // Reserves room for expectedTracks tracks; a negative or huge count throws
    // std::length_error.
    explicit RMovieInfo(int expectedTracks);
    // Shares the tracks: each gains one reference.
    RMovieInfo(const RMovieInfo& other);
    RMovieInfo& operator=(const RMovieInfo&) = delete;
    ~RMovieInfo() override;

    // Appends the track without retaining it: the movie takes over one reference that the
    // caller holds (retain() a new track first) and releases it when destroyed. A null
    // track is ignored.
    void addTrack(RTrackInfo* track);
    // The tracks of one media type in movie order; kAnyFourCC selects every track.
    std::vector<RTrackInfo*> getTracksForMedia(unsigned int mediaType) const;
    // Prints every track (which prints nothing).
    void print() const;

    double mMovieDuration = 0;  // travels as whole seconds
    unsigned long long mMovieValue1 = 0;
    unsigned long long mMovieValue2 = 0;
    CString mMovieName;
    std::vector<RTrackInfo*> mTracks;  // one reference each
};

// The wire forms. Video and audio tracks: the seven track fields, then the two kind values
// and the fixed value. Hint tracks: the seven track fields, the hint value, name and lines.
// Times and the fixed value travel as whole seconds.
CData& operator<<(CData& data, const RVideoTrackInfo& track);
CData& operator>>(CData& data, RVideoTrackInfo& track);
CData& operator<<(CData& data, const RAudioTrackInfo& track);
CData& operator>>(CData& data, RAudioTrackInfo& track);
CData& operator<<(CData& data, const RHintTrackInfo& track);
CData& operator>>(CData& data, RHintTrackInfo& track);
// The movie's numbers and name, the track count, then each track as its media type
// followed by the form of its kind; tracks of any other type are carried as the type word
// alone. Reading appends the tracks it can fill to the movie; a truncated track is
// dropped and data.failed() tells the caller. A track takes the type word that chose its
// form as its media type, whatever the form itself repeats. The metadata is not carried.
CData& operator<<(CData& data, const RMovieInfo& movie);
CData& operator>>(CData& data, RMovieInfo& movie);

}  // namespace CM
}  // namespace ZR

#endif
