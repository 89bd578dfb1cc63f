#include <cm/CMTrackInfo.h>

#include <zr/RPtr.h>
#include <zr/ZRTypes.h>

#include <gtest/gtest.h>

#include "support/WireBytes.h"

#include <cstring>
#include <random>
#include <stdexcept>
#include <vector>

using namespace ZR;
using namespace ZR::CM;

namespace {

using Bytes = cmtest::Wire;

// The seven fields every track form starts with; the real is written as its bits.
Bytes& track(Bytes& out, std::uint32_t id, const char (&type)[5], std::uint32_t value,
             std::uint64_t start, std::uint64_t duration, double real, std::uint64_t size) {
    std::uint64_t bits;
    std::memcpy(&bits, &real, sizeof bits);
    return out.u32(id).u32(fourcc(type)).u32(value).u64(start).u64(duration).u64(bits).u64(size);
}

// The movie numbers every test uses: 12.9 s travels as 12.
RPtr<RMovieInfo> movieNamed(const char* name) {
    RPtr<RMovieInfo> movie(new RMovieInfo());
    movie->mMovieDuration = 12.9;
    movie->mMovieValue1 = 0x0102030405060708ull;
    movie->mMovieValue2 = 600;
    movie->mMovieName = name;
    movie->setMetaValue("title", "not on the wire");
    return movie;
}

Bytes movieHeader(const char* name, std::uint32_t tracks) {
    return Bytes().u64(12).u64(0x0102030405060708ull).u64(600).str(name).u32(tracks);
}

std::vector<unsigned char> wire(const RMovieInfo& movie) {
    CData data;
    data << movie;
    return std::vector<unsigned char>(data.getData(), data.getData() + data.getSize());
}

RPtr<RMovieInfo> readMovie(const std::vector<unsigned char>& bytes, bool* failed = nullptr) {
    CData data(bytes.data(), static_cast<int>(bytes.size()));
    RPtr<RMovieInfo> movie(new RMovieInfo());
    data >> *movie;
    if (failed) {
        *failed = data.failed();
    }
    return movie;
}

// A new track with the one reference that a movie takes over.
template <typename Track>
Track* handed(Track* track) {
    track->retain();
    return track;
}

RHintTrackInfo* filledHintTrack() {
    auto* hint = handed(new RHintTrackInfo());
    hint->mTrackID = 3;
    hint->mTrackDuration = 60.0;
    hint->mHintValue = 96;
    hint->mHintName = "rtp";
    hint->mHintLines = {CString("a=x"), CString("b=yy")};
    return hint;
}

}  // namespace

TEST(MovieInfoTest, WireFormOfEveryTrackKind) {
    RPtr<RMovieInfo> movie = movieNamed("clip");
    movie->addTrack(handed(new RVideoTrackInfo(1, 25, 1.9, 120.5, 0.25, 1000, 1920, 1080, 29.97)));
    movie->addTrack(handed(new RAudioTrackInfo(2, 48000, 0.0, 3.0, -1.5, 5, 2, 16, 44100.0)));
    movie->addTrack(filledHintTrack());
    auto* text = handed(new RTextTrackInfo());
    text->mMediaType = fourcc("text");
    movie->addTrack(text);

    Bytes tracks;
    track(tracks.u32(fourcc("vide")), 1, "vide", 25, 1, 120, 0.25, 1000).u32(1920).u32(1080);
    tracks.u64(29);
    track(tracks.u32(fourcc("audi")), 2, "audi", 48000, 0, 3, -1.5, 5).u32(2).u32(16).u64(44100);
    track(tracks.u32(fourcc("hint")), 3, "hint", 0, 0, 60, 0.0, 0).u32(96).str("rtp");
    tracks.u32(2).str("a=x").str("b=yy");
    EXPECT_EQ(wire(*movie), movieHeader("clip", 4).append(tracks).u32(fourcc("text")).bytes);

    // Read back, every kind but text returns as its own class, and travels again as it came.
    RPtr<RMovieInfo> back = readMovie(wire(*movie));
    ASSERT_EQ(back->mTracks.size(), 3u);
    EXPECT_NE(dynamic_cast<RVideoTrackInfo*>(back->mTracks[0]), nullptr);
    EXPECT_NE(dynamic_cast<RAudioTrackInfo*>(back->mTracks[1]), nullptr);
    EXPECT_NE(dynamic_cast<RHintTrackInfo*>(back->mTracks[2]), nullptr);
    EXPECT_EQ(back->getMetaCount(), 0);
    EXPECT_EQ(wire(*back), movieHeader("clip", 3).append(tracks).bytes);
}

TEST(MovieInfoTest, FullyBuiltHintTrackTravelsAsAudio) {
    RPtr<RMovieInfo> movie = movieNamed("h");
    movie->addTrack(
        handed(new RHintTrackInfo(7, 8, 2.5, 4.0, 0.5, 9, 96, "name", {CString("m=")})));
    // The audio form without the hint fields; zeros stand in for the kind values a hint
    // track does not have.
    Bytes audio;
    track(audio.u32(fourcc("audi")), 7, "audi", 8, 2, 4, 0.5, 9).u32(0).u32(0);
    EXPECT_EQ(wire(*movie), movieHeader("h", 1).append(audio).u64(0).bytes);
}

TEST(MovieInfoTest, TypeWordDecidesATracksMediaType) {
    // A hint form whose own copy of the media type says "vide" (found by cdata_fuzz): read
    // as it stands, the hint track would be picked as a video track, and a component that
    // treats the tracks of a type as that kind would read a hint track as a video one.
    Bytes hostile = movieHeader("m", 1);
    track(hostile.u32(fourcc("hint")), 4, "vide", 0, 0, 1, 0.0, 0);
    hostile.u32(96).str("rtp").u32(0);
    RPtr<RMovieInfo> back = readMovie(hostile.bytes);
    ASSERT_EQ(back->mTracks.size(), 1u);
    EXPECT_NE(dynamic_cast<RHintTrackInfo*>(back->mTracks[0]), nullptr);
    EXPECT_EQ(back->mTracks[0]->mMediaType, fourcc("hint"));
    EXPECT_TRUE(back->getTracksForMedia(fourcc("vide")).empty());

    // Written again, the track keeps its form and both copies of its type agree.
    Bytes consistent = movieHeader("m", 1);
    track(consistent.u32(fourcc("hint")), 4, "hint", 0, 0, 1, 0.0, 0);
    consistent.u32(96).str("rtp").u32(0);
    EXPECT_EQ(wire(*back), consistent.bytes);
}

TEST(MovieInfoTest, EmptyMovieAndTrackSelection) {
    EXPECT_EQ(wire(*movieNamed("")), movieHeader("", 0).bytes);

    RPtr<RMovieInfo> movie(new RMovieInfo(3));
    movie->addTrack(handed(new RAudioTrackInfo()));
    movie->addTrack(handed(new RVideoTrackInfo()));
    movie->addTrack(handed(new RAudioTrackInfo()));
    const std::vector<RTrackInfo*> audio = movie->getTracksForMedia(fourcc("audi"));
    EXPECT_EQ(audio, (std::vector<RTrackInfo*>{movie->mTracks[0], movie->mTracks[2]}));
    EXPECT_EQ(movie->getTracksForMedia(kAnyFourCC), movie->mTracks);
    EXPECT_TRUE(movie->getTracksForMedia(fourcc("hint")).empty());
    EXPECT_THROW(RMovieInfo(-1), std::length_error);
}

TEST(MovieInfoTest, MovieOwnsOneReferencePerTrack) {
    RPtr<RVideoTrackInfo> held(new RVideoTrackInfo());
    held->retain();  // the reference the movie takes over
    {
        RPtr<RMovieInfo> movie = movieNamed("m");
        movie->addTrack(held.addr());  // taken over, not retained
        movie->addTrack(handed(new RAudioTrackInfo()));
        movie->addTrack(nullptr);
        EXPECT_EQ(held->retain_count(), 2);
        EXPECT_EQ(movie->mTracks[1]->retain_count(), 1);
        EXPECT_EQ(movie->mTracks.size(), 2u);

        RPtr<RMovieInfo> copy(new RMovieInfo(*movie));
        EXPECT_EQ(copy->mTracks, movie->mTracks);
        EXPECT_EQ(held->retain_count(), 3);
        EXPECT_TRUE(copy->getMetaValue("title") == "not on the wire");
    }
    EXPECT_EQ(held->retain_count(), 1);
}

TEST(MovieInfoTest, TruncatedOrGarbageStreamsCreateOnlyCompleteTracks) {
    RPtr<RMovieInfo> movie = movieNamed("clip");
    movie->addTrack(handed(new RVideoTrackInfo(1, 25, 1, 2, 0.5, 10, 640, 480, 25)));
    movie->addTrack(filledHintTrack());
    movie->addTrack(handed(new RAudioTrackInfo(2, 8000, 0, 2, 0.5, 10, 1, 2, 3)));
    const std::vector<unsigned char> full = wire(*movie);

    // Each prefix is a copy of exactly its bytes, so the sanitizers see any read beyond.
    std::size_t tracksSoFar = 0;
    for (std::size_t cut = 0; cut < full.size(); ++cut) {
        bool failed = false;
        RPtr<RMovieInfo> back = readMovie({full.begin(), full.begin() + cut}, &failed);
        EXPECT_TRUE(failed) << cut;
        ASSERT_LE(back->mTracks.size(), 2u) << cut;
        EXPECT_GE(back->mTracks.size(), tracksSoFar) << cut;
        tracksSoFar = back->mTracks.size();
        for (std::size_t i = 0; i < tracksSoFar; ++i) {
            EXPECT_EQ(back->mTracks[i]->mTrackID, movie->mTracks[i]->mTrackID) << cut;
        }
    }
    EXPECT_EQ(tracksSoFar, 2u);

    // A huge track count over a few type words reads only what is there.
    bool failed = false;
    const Bytes hostile = movieHeader("x", 0xFFFFFFFFu).u32(fourcc("text")).u32(fourcc("vide"));
    EXPECT_TRUE(readMovie(hostile.bytes, &failed)->mTracks.empty());
    EXPECT_TRUE(failed);

    // Random streams, and the real one with a few bytes changed.
    std::mt19937 random(1234);
    for (int round = 0; round < 400; ++round) {
        std::vector<unsigned char> bytes = full;
        if (round % 2) {
            bytes.resize(random() % 256);
            for (unsigned char& byte : bytes) {
                byte = static_cast<unsigned char>(random());
            }
        } else {
            bytes[random() % bytes.size()] = static_cast<unsigned char>(random());
        }
        const RPtr<RMovieInfo> back = readMovie(bytes);
        for (const RTrackInfo* track : back->mTracks) {
            EXPECT_TRUE(dynamic_cast<const RVideoTrackInfo*>(track) ||
                        dynamic_cast<const RAudioTrackInfo*>(track) ||
                        dynamic_cast<const RHintTrackInfo*>(track));
        }
    }
}
