// zrbase::timestamp: an exact time as a count of ticks of a clock (value / scale seconds),
// and zrbase::fraction, a fraction of integers (timecode frame rates).
#ifndef ZRBASE_TIMESTAMP_H
#define ZRBASE_TIMESTAMP_H

namespace zrbase {

template <typename T>
struct fraction {
    constexpr fraction(T n = 0, T d = 1) noexcept : numerator(n), denominator(d) {}
    T numerator;
    T denominator;
};

class timestamp {
public:
    constexpr timestamp(unsigned long long value = 0, unsigned long long scale = 1) noexcept
        : m_value(value), m_scale(scale) {}
    constexpr unsigned long long value() const noexcept { return m_value; }
    constexpr unsigned long long scale() const noexcept { return m_scale; }

private:
    unsigned long long m_value;
    unsigned long long m_scale;
};

}  // namespace zrbase

#endif
