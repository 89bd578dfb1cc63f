// Time values of the base library: CTimeStamp (media times and durations, in seconds) and
// Fixed64 (a number the track infos store and serialize). Both are one double and convert
// implicitly from and to double.
#ifndef ZR_CTIMESTAMP_H
#define ZR_CTIMESTAMP_H

namespace ZR {

class CTimeStamp {
public:
    constexpr CTimeStamp(double seconds = 0.0) noexcept : mSeconds(seconds) {}
    constexpr operator double() const noexcept { return mSeconds; }

private:
    double mSeconds;
};

class Fixed64 {
public:
    constexpr Fixed64(double value = 0.0) noexcept : mValue(value) {}
    constexpr operator double() const noexcept { return mValue; }

private:
    double mValue;
};

}  // namespace ZR

#endif
