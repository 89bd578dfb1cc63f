#include <cm/CMTrackInfo.h>

#include <zr/RPtr.h>
#include <zr/ZRTypes.h>

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <stdexcept>
#include <vector>

using namespace ZR;
using namespace ZR::CM;

namespace {

// Expected wire bytes, written out field by field.
struct Bytes {
    std::vector<unsigned char> v;
    Bytes& u32(std::uint32_t x) {
        for (int shift = 24; shift >= 0; shift -= 8) {
            v.push_back(static_cast<unsigned char>(x >> shift));
        }
        return *this;
    }
    Bytes& u64(std::uint64_t x) { return u32(static_cast<std::uint32_t>(x >> 32)).u32(x); }
    Bytes& real(double x) {
        std::uint64_t bits;
        std::memcpy(&bits, &x, sizeof bits);
        return u64(bits);
    }
    Bytes& text(const char* s) {
        const std::size_t n = std::strlen(s) + 1;
        u32(static_cast<std::uint32_t>(n));
        v.insert(v.end(), s, s + n);
        return *this;
    }
    // The seven fields every track form starts with.
    Bytes& track(std::uint32_t id, const char (&type)[5], std::uint32_t value, std::uint64_t start,
                 std::uint64_t duration, double real, std::uint64_t size) {
        return u32(id).u32(fourcc(type)).u32(value).u64(start).u64(duration).real(real).u64(size);
    }
};

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

RPtr<RMovieInfo> movieNamed(const char* name) {
    RPtr<RMovieInfo> movie(new RMovieInfo(4));
    movie->mMovieDuration = 12.9;
    movie->mMovieValue1 = 0x0102030405060708ull;
    movie->mMovieValue2 = 600;
    movie->mMovieName = name;
    movie->setMetaValue("title", "not on the wire");
    return movie;
}

Bytes movieHeader(const char* name, std::uint32_t tracks) {
    Bytes b;
    b.u64(12).u64(0x0102030405060708ull).u64(600).text(name).u32(tracks);
    return b;
}

RHintTrackInfo* filledHintTrack() {
    auto* hint = new RHintTrackInfo();
    hint->mTrackID = 3;
    hint->mTrackValue = 90000;
    hint->mTrackStart = 0.5;
    hint->mTrackDuration = 60.0;
    hint->mTrackReal = 1.0;
    hint->mTrackSize = 77;
    hint->mHintValue = 96;
    hint->mHintName = "rtp";
    hint->mHintLines = {CString("a=x"), CString("b=yy")};
    return hint;
}

}  // namespace

TEST(MovieInfoTest, WireFormOfEveryTrackKind) {
    RPtr<RMovieInfo> movie = movieNamed("clip");
    movie->addTrack(new RVideoTrackInfo(1, 25, 1.9, 120.5, 0.25, 1000, 1920, 1080, 29.97));
    movie->addTrack(new RAudioTrackInfo(2, 48000, 0.0, 3.0, -1.5, 5, 2, 16, 44100.0));
    movie->addTrack(filledHintTrack());
    auto* text = new RTextTrackInfo();
    text->mMediaType = fourcc("text");
    text->mTrackID = 4;
    movie->addTrack(text);

    Bytes tracks;
    tracks.u32(fourcc("vide")).track(1, "vide", 25, 1, 120, 0.25, 1000).u32(1920).u32(1080).u64(29);
    tracks.u32(fourcc("audi")).track(2, "audi", 48000, 0, 3, -1.5, 5).u32(2).u32(16).u64(44100);
    tracks.u32(fourcc("hint")).track(3, "hint", 90000, 0, 60, 1.0, 77).u32(96).text("rtp");
    tracks.u32(2).text("a=x").text("b=yy");
    Bytes expected = movieHeader("clip", 4);
    expected.v.insert(expected.v.end(), tracks.v.begin(), tracks.v.end());
    expected.u32(fourcc("text"));
    EXPECT_EQ(wire(*movie), expected.v);

    // Times travel as whole seconds; text tracks do not come back.
    RPtr<RMovieInfo> back = readMovie(expected.v);
    EXPECT_EQ(back->mMovieDuration, 12.0);
    EXPECT_EQ(back->mMovieValue1, 0x0102030405060708ull);
    EXPECT_EQ(back->mMovieValue2, 600u);
    EXPECT_TRUE(back->mMovieName == "clip");
    EXPECT_EQ(back->getMetaCount(), 0);
    ASSERT_EQ(back->mTracks.size(), 3u);

    auto* video = dynamic_cast<RVideoTrackInfo*>(back->mTracks[0]);
    ASSERT_NE(video, nullptr);
    EXPECT_EQ(video->mTrackID, 1u);
    EXPECT_EQ(video->mTrackValue, 25u);
    EXPECT_EQ(video->mTrackStart, 1.0);
    EXPECT_EQ(video->mTrackDuration, 120.0);
    EXPECT_EQ(video->mTrackReal, 0.25);
    EXPECT_EQ(video->mTrackSize, 1000u);
    EXPECT_EQ(video->mKindValue1, 1920u);
    EXPECT_EQ(video->mKindValue2, 1080u);
    EXPECT_EQ(video->mKindFixed, 29.0);

    auto* audio = dynamic_cast<RAudioTrackInfo*>(back->mTracks[1]);
    ASSERT_NE(audio, nullptr);
    EXPECT_EQ(audio->mTrackReal, -1.5);
    EXPECT_EQ(audio->mKindFixed, 44100.0);

    auto* hint = dynamic_cast<RHintTrackInfo*>(back->mTracks[2]);
    ASSERT_NE(hint, nullptr);
    EXPECT_EQ(hint->mMediaType, fourcc("hint"));
    EXPECT_EQ(hint->mHintValue, 96u);
    EXPECT_TRUE(hint->mHintName == "rtp");
    ASSERT_EQ(hint->mHintLines.size(), 2u);
    EXPECT_TRUE(hint->mHintLines[1] == "b=yy");

    // What came back travels again as it came, less the text track.
    Bytes again = movieHeader("clip", 3);
    again.v.insert(again.v.end(), tracks.v.begin(), tracks.v.end());
    EXPECT_EQ(wire(*back), again.v);
}

TEST(MovieInfoTest, FullyBuiltHintTrackTravelsAsAudio) {
    std::vector<CString> lines = {CString("m=video")};
    RPtr<RMovieInfo> movie = movieNamed("h");
    auto* hint = new RHintTrackInfo(7, 8, 2.5, 4.0, 0.5, 9, 96, CString("name"), lines);
    EXPECT_EQ(hint->mMediaType, fourcc("audi"));
    EXPECT_EQ(hint->mHintLines.size(), 1u);
    movie->addTrack(hint);

    // The audio form without the hint fields; a hint track has no kind values, so zeros
    // stand in for them.
    Bytes expected = movieHeader("h", 1);
    expected.u32(fourcc("audi")).track(7, "audi", 8, 2, 4, 0.5, 9).u32(0).u32(0).u64(0);
    EXPECT_EQ(wire(*movie), expected.v);

    RPtr<RMovieInfo> back = readMovie(expected.v);
    ASSERT_EQ(back->mTracks.size(), 1u);
    EXPECT_NE(dynamic_cast<RAudioTrackInfo*>(back->mTracks[0]), nullptr);
    EXPECT_EQ(back->mTracks[0]->mTrackID, 7u);
}

TEST(MovieInfoTest, EmptyMovieAndTrackSelection) {
    RPtr<RMovieInfo> empty = movieNamed("");
    EXPECT_EQ(wire(*empty), movieHeader("", 0).v);
    EXPECT_TRUE(readMovie(wire(*empty))->mTracks.empty());

    RPtr<RMovieInfo> movie = movieNamed("m");
    movie->addTrack(new RAudioTrackInfo());
    movie->addTrack(new RVideoTrackInfo());
    movie->addTrack(new RAudioTrackInfo());
    const std::vector<RTrackInfo*> audio = movie->getTracksForMedia(fourcc("audi"));
    ASSERT_EQ(audio.size(), 2u);
    EXPECT_EQ(audio[0], movie->mTracks[0]);
    EXPECT_EQ(audio[1], movie->mTracks[2]);
    EXPECT_EQ(movie->getTracksForMedia(kAnyFourCC), movie->mTracks);
    EXPECT_TRUE(movie->getTracksForMedia(fourcc("hint")).empty());
    EXPECT_EQ(RTextTrackInfo().mMediaType, 0u);
    movie->print();

    EXPECT_THROW(RMovieInfo(-1), std::length_error);
}

TEST(MovieInfoTest, MovieOwnsOneReferencePerTrack) {
    RPtr<RVideoTrackInfo> held(new RVideoTrackInfo());
    held->retain();  // the reference the movie takes over
    {
        RPtr<RMovieInfo> movie(new RMovieInfo());
        movie->setMetaValue("k", "v");
        movie->addTrack(held.addr());
        movie->addTrack(new RAudioTrackInfo());  // nobody holds it yet: the movie's own
        EXPECT_EQ(held->retain_count(), 2);
        EXPECT_EQ(movie->mTracks[1]->retain_count(), 1);

        RPtr<RMovieInfo> copy(new RMovieInfo(*movie));
        EXPECT_EQ(copy->mTracks, movie->mTracks);
        EXPECT_EQ(held->retain_count(), 3);
        EXPECT_EQ(movie->mTracks[1]->retain_count(), 2);
        EXPECT_TRUE(copy->getMetaValue("k") == "v");
    }
    EXPECT_EQ(held->retain_count(), 1);
}

TEST(MovieInfoTest, TruncatedOrGarbageStreamsCreateOnlyCompleteTracks) {
    RPtr<RMovieInfo> movie = movieNamed("clip");
    movie->addTrack(new RVideoTrackInfo(1, 25, 1, 2, 0.5, 10, 640, 480, 25));
    movie->addTrack(filledHintTrack());
    movie->addTrack(new RAudioTrackInfo(2, 8000, 0, 2, 0.5, 10, 1, 2, 3));
    const std::vector<unsigned char> full = wire(*movie);

    std::size_t previousTracks = 0;
    for (std::size_t cut = 0; cut < full.size(); ++cut) {
        // A copy of exactly `cut` bytes, so that the sanitizers see any read beyond them.
        const std::vector<unsigned char> prefix(full.begin(), full.begin() + cut);
        bool failed = false;
        RPtr<RMovieInfo> back = readMovie(prefix, &failed);
        EXPECT_TRUE(failed) << cut;
        ASSERT_LE(back->mTracks.size(), 2u) << cut;
        EXPECT_GE(back->mTracks.size(), previousTracks);
        previousTracks = back->mTracks.size();
        for (std::size_t i = 0; i < back->mTracks.size(); ++i) {
            EXPECT_EQ(back->mTracks[i]->mTrackID, movie->mTracks[i]->mTrackID) << cut;
            EXPECT_EQ(back->mTracks[i]->mTrackSize, movie->mTracks[i]->mTrackSize) << cut;
        }
    }
    EXPECT_EQ(previousTracks, 2u);

    // A huge track count over a few type words reads only what is there.
    Bytes hostile = movieHeader("x", 0xFFFFFFFFu);
    hostile.u32(fourcc("text")).u32(fourcc("vide")).u32(1);
    bool failed = false;
    EXPECT_TRUE(readMovie(hostile.v, &failed)->mTracks.empty());
    EXPECT_TRUE(failed);

    // Random streams, and the real one with a few bytes changed, never read outside their
    // bytes (the sanitizer builds check) and never yield a track of an unknown kind.
    std::mt19937 random(1234);
    for (int round = 0; round < 400; ++round) {
        std::vector<unsigned char> bytes = full;
        if (round % 2) {
            bytes.resize(random() % 256);
            for (unsigned char& byte : bytes) {
                byte = static_cast<unsigned char>(random());
            }
        } else {
            for (int flips = 1 + random() % 4; flips > 0; --flips) {
                bytes[random() % bytes.size()] = static_cast<unsigned char>(random());
            }
        }
        const RPtr<RMovieInfo> back = readMovie(bytes);
        for (const RTrackInfo* track : back->mTracks) {
            EXPECT_TRUE(dynamic_cast<const RVideoTrackInfo*>(track) ||
                        dynamic_cast<const RAudioTrackInfo*>(track) ||
                        dynamic_cast<const RHintTrackInfo*>(track));
        }
    }
}
