// The media data model: frames and the descriptions of the frames a queue carries.
//
// A frame is one timed unit of media (a video picture, a run of audio samples, a piece of
// text) with its bytes, its place in time and a set of named parameters. A description
// states the format of the frames of one queue. Both are reference counted: a new object
// has count 0 and lives as long as some ZR::RPtr holds it. The create...() factories and
// copy() return such count-0 objects.
//
// Ownership: a frame owns its data block, a malloc() block, and frees it; every block the
// frame allocates itself is 64 bytes longer than its capacity, so that consumers may read a
// little past the end of the data. Large blocks are recycled through a pool rather than
// given back to the system, so that a stream of large frames does not fault in fresh pages
// for every frame. Bytes handed to a frame are adopted, copied, or copied
// and freed, as the ZR::ConstructionFlags say. Frames and descriptions own one reference
// to each parameter value; parameter names are the caller's pointers, not copies, so a
// name must outlive the object (string literals are the normal use).
//
// Threads: a frame or description is filled by one thread, then published through a queue
// and treated as read-only (consumers hold ZR::RPtr<const RFrame>). Only the reference
// counts are touched by several threads; none of these classes has a lock.
#ifndef CM_CMFRAME_H
#define CM_CMFRAME_H

#include <cm/CMQueueNode.h>
#include <zr/CBuffer.h>
#include <zr/CTimeStamp.h>
#include <zr/RPtr.h>
#include <zr/ZRTypes.h>
#include <zrbase/timecode.h>

#include <cstdlib>
#include <map>
#include <memory>

namespace ZR {
namespace CM {

// The named parameters that frames and descriptions carry. Names are compared by their
// text (ZR::lestr) but stored as the caller's pointers. A null name is never stored and
// never found.
class CParameterMap {
public:
    // Sets the parameter `name` to `value`, replacing (and releasing) any earlier value of
    // that name. A null value still makes an entry, which counts in getParameterCount().
    void addParameter(const char* name, const zrbase::object_refcount* value);
    void addParameter(const char* name, const RPtr<zrbase::object_refcount>& value) {
        addParameter(name, value.addr());
    }
    void removeParameter(const char* name);
    // Null when absent.
    RPtr<const zrbase::object_refcount> getParameter(const char* name) const;
    int getParameterCount() const noexcept { return static_cast<int>(mParameters.size()); }
    // 1 if the name is present, else 0.
    int getParameterCount(const char* name) const;

protected:
    // Copies share the values: each gains one reference.
    CParameterMap() = default;
    CParameterMap(const CParameterMap&) = default;
    CParameterMap& operator=(const CParameterMap&) = default;
    ~CParameterMap() = default;

    std::map<const char*, RPtr<const zrbase::object_refcount>, lestr> mParameters;
};

class RFrame : public RQNode, public CParameterMap {
public:
    // An empty frame with room for `capacity` bytes (no block when 0).
    explicit RFrame(unsigned int capacity);
    // A frame holding `size` bytes of `data`, taken per `flags`.
    RFrame(unsigned int format, unsigned int size, unsigned char* data, ConstructionFlags flags);
    RFrame(unsigned int frameNumber, CTimeStamp start, CTimeStamp duration, unsigned int format,
           unsigned int size, unsigned char* data, ConstructionFlags flags);
    // A frame derived from `source`: its parameters, number and times, with new data. A
    // null source gives the plain (format, size, data) frame.
    RFrame(const RFrame* source, unsigned int format, unsigned int size, unsigned char* data,
           ConstructionFlags flags);
    // A full copy whose block is just large enough for the source's data (none when the
    // source is empty).
    RFrame(const RFrame& other);
    RFrame& operator=(const RFrame&) = delete;
    ~RFrame() override;

    unsigned int getSize() const override { return mSize; }
    virtual unsigned int type() const = 0;
    // A new frame (count 0) of the same kind with its own copy of the data.
    virtual RFrame* copy() const = 0;

    // Replaces the data. Copying keeps the block when it is large enough (a frame never
    // shrinks its block) and otherwise grows it to exactly `size`; adopting takes `data`
    // (a malloc() block; null empties the frame) as the new block with capacity `size`.
    // Throws CException "Memory allocation error." when no block can hold the copy; the
    // frame then keeps its old size, and after a failed growth it has no block (destroy it).
    void setData(unsigned int size, unsigned char* data, ConstructionFlags flags);
    // Takes `data` for the current size, replacing the block; the constructors fill a frame
    // through it. Copying puts the bytes into a new block of the current capacity; adopting
    // makes `data` the block and keeps the size and capacity as they are (null empties the
    // frame).
    void initWithData(unsigned char* data, ConstructionFlags flags);

    unsigned int getFrameNumber() const noexcept { return mFrameNumber; }
    void setFrameNumber(unsigned int frameNumber) noexcept { mFrameNumber = frameNumber; }
    CTimeStamp getStartTime() const noexcept { return mStartTime; }
    void setStartTime(CTimeStamp start) noexcept { mStartTime = start; }
    CTimeStamp getAuxTime() const noexcept { return mAuxTime; }
    void setAuxTime(CTimeStamp aux) noexcept { mAuxTime = aux; }
    CTimeStamp getDuration() const noexcept { return mDuration; }
    void setDuration(CTimeStamp duration) noexcept { mDuration = duration; }
    unsigned int getDataFormat() const noexcept { return mDataFormat; }
    void setDataFormat(unsigned int format) noexcept { mDataFormat = format; }
    unsigned char* getData() noexcept { return mData.get(); }
    const unsigned char* getData() const noexcept { return mData.get(); }
    unsigned int getCapacity() const noexcept { return mCapacity; }

private:
    // Large blocks go back to a pool of recycled blocks, the others to free().
    struct FreeBlock {
        void operator()(unsigned char* block) const noexcept;
    };
    using Block = std::unique_ptr<unsigned char, FreeBlock>;

    // A block of capacity + 64 bytes; null when out of memory.
    static Block allocateBlock(unsigned int capacity) noexcept;
    // Copies n bytes into block, then frees the source if the flags say so. A null source
    // (a caller's error) gives zeros.
    static void copyInto(unsigned char* block, unsigned char* source, unsigned int n,
                         ConstructionFlags flags) noexcept;
    void adopt(unsigned char* data, unsigned int size) noexcept;

    unsigned int mFrameNumber = 0;  // frame index; for audio, the number of the first sample
    CTimeStamp mStartTime;          // presentation time, seconds
    CTimeStamp mAuxTime;            // carried along by copies and derived frames, not read here
    CTimeStamp mDuration;
    unsigned int mDataFormat = 0;  // FourCC of the data
    unsigned int mSize = 0;        // valid bytes in the block
    Block mData;
    unsigned int mCapacity = 0;  // bytes the block can hold, 64 of slack not counted
};

class RVideoFrame : public RFrame {
public:
    // The frame's constructors, the values of this kind 0; producers usually go through
    // the factories below.
    using RFrame::RFrame;
    RVideoFrame(const RVideoFrame&) = default;

    static RVideoFrame* create(unsigned int capacity);
    static RVideoFrame* createWithData(unsigned int format, unsigned int size, unsigned char* data,
                                       unsigned int value, ConstructionFlags flags);
    static RVideoFrame* createWithData(unsigned int frameNumber, CTimeStamp start,
                                       CTimeStamp duration, unsigned int format, unsigned int size,
                                       unsigned char* data, unsigned int value,
                                       ConstructionFlags flags);
    // Also inherits the source's second value and timecode.
    static RVideoFrame* createWithData(const RVideoFrame* source, unsigned int format,
                                       unsigned int size, unsigned char* data, unsigned int value,
                                       ConstructionFlags flags);

    unsigned int type() const override { return fourcc("vide"); }
    RVideoFrame* copy() const override;

    unsigned int getVideoValue() const noexcept { return mVideoValue; }
    unsigned int getVideoValue2() const noexcept { return mVideoValue2; }
    void setVideoValue2(unsigned int value) noexcept { mVideoValue2 = value; }
    const zrbase::timecode& getTimecode() const noexcept { return mTimecode; }
    void setTimecode(const zrbase::timecode& timecode) noexcept { mTimecode = timecode; }

private:
    static RVideoFrame* withValue(RVideoFrame* frame, unsigned int value) noexcept;

    unsigned int mVideoValue = 0;   // the producer's value, stored unchanged
    unsigned int mVideoValue2 = 0;  // carried by derived frames
    zrbase::timecode mTimecode{zrbase::timecode::mode_none};
};

class RAudioFrame : public RFrame {
public:
    // The frame's constructors, the values of this kind 0; producers usually go through
    // the factories below.
    using RFrame::RFrame;
    RAudioFrame(const RAudioFrame&) = default;

    static RAudioFrame* create(unsigned int capacity);
    static RAudioFrame* createWithData(unsigned int format, unsigned int size, unsigned char* data,
                                       unsigned int value1, unsigned int value2,
                                       ConstructionFlags flags);
    static RAudioFrame* createWithData(unsigned int frameNumber, CTimeStamp start,
                                       CTimeStamp duration, unsigned int format, unsigned int size,
                                       unsigned char* data, unsigned int value1,
                                       unsigned int value2, ConstructionFlags flags);
    // The two values are the given ones, not the source's.
    static RAudioFrame* createWithData(const RAudioFrame* source, unsigned int format,
                                       unsigned int size, unsigned char* data, unsigned int value1,
                                       unsigned int value2, ConstructionFlags flags);

    unsigned int type() const override { return fourcc("audi"); }
    RAudioFrame* copy() const override;

    unsigned int getAudioValue1() const noexcept { return mAudioValue1; }
    unsigned int getAudioValue2() const noexcept { return mAudioValue2; }

private:
    static RAudioFrame* withValues(RAudioFrame* frame, unsigned int value1,
                                   unsigned int value2) noexcept;

    // The producer's values, stored unchanged.
    unsigned int mAudioValue1 = 0;
    unsigned int mAudioValue2 = 0;
};

class RTextFrame : public RFrame {
public:
    // The frame's constructors, the values of this kind 0; producers usually go through
    // the factories below.
    using RFrame::RFrame;
    RTextFrame(const RTextFrame&) = default;

    static RTextFrame* create(unsigned int capacity);
    // The base part of any frame (data, times, parameters) copied as a text frame; null
    // for a null frame.
    static RTextFrame* createWithFrame(const RFrame* frame);
    static RTextFrame* createWithData(unsigned int format, unsigned int size, unsigned char* data,
                                      ConstructionFlags flags);
    static RTextFrame* createWithData(unsigned int frameNumber, CTimeStamp start,
                                      CTimeStamp duration, unsigned int format, unsigned int size,
                                      unsigned char* data, ConstructionFlags flags);
    static RTextFrame* createWithData(const RFrame* source, unsigned int format, unsigned int size,
                                      unsigned char* data, ConstructionFlags flags);

    unsigned int type() const override { return fourcc("text"); }
    RTextFrame* copy() const override;

protected:
    // The copy of another kind's base part.
    explicit RTextFrame(const RFrame& frame) : RFrame(frame) {}
};

// The format of the frames a queue carries: the media kind (type()) and the numbers a
// consumer needs to interpret them. The fields of the concrete classes are public data;
// every default constructor sets them to 0.
class RDescription : public RQDescription, public CParameterMap {
public:
    ~RDescription() override;

    // A new description (count 0) equal to this one, sharing its parameter values.
    RDescription* copy() const override = 0;
};

class RVideoDescription : public RDescription {
public:
    RVideoDescription() = default;
    RVideoDescription(const RVideoDescription&) = default;

    unsigned int type() const override { return fourcc("vide"); }
    RVideoDescription* copy() const override;

    unsigned int mVideoInt1 = 0;
    unsigned int mVideoInt2 = 0;
    float mVideoReal1 = 0;
    float mVideoReal2 = 0;
    double mFrameRate = 0;  // frames per second
    unsigned int mVideoInt3 = 0;
};

class RAudioDescription : public RDescription {
public:
    RAudioDescription() = default;
    RAudioDescription(const RAudioDescription&) = default;

    unsigned int type() const override { return fourcc("audi"); }
    RAudioDescription* copy() const override;

    unsigned int mChannels = 0;
    unsigned int mAudioInt = 0;
    unsigned int mBytesPerSample = 0;  // bytes of one sample of one channel
    double mSampleRate = 0;            // samples per second per channel
};

class RTextDescription : public RDescription {
public:
    RTextDescription() = default;
    RTextDescription(const RTextDescription&) = default;

    unsigned int type() const override { return fourcc("text"); }
    RTextDescription* copy() const override;

    unsigned long long mTextValue = 0;
};

}  // namespace CM
}  // namespace ZR

#endif
