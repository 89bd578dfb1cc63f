#include <cm/CMComponentConfiguration.h>

#include <zr/ZRTypes.h>

#include <cstdlib>

namespace ZR {
namespace CM {

namespace {

// Clamps a converted number into [min, max]. The first test is written so that NaN fails it
// and comes back as min.
template <typename T>
T clampToRange(T value, T min, T max) {
    if (!(value >= min)) {
        return min;
    }
    if (!(value > max)) {
        return value;
    }
    return max;
}

template <typename Map>
void writePairs(CData& data, const Map& map) {
    data << static_cast<unsigned int>(map.size());
    for (const auto& entry : map) {
        data << entry.first << entry.second;
    }
}

// Every pair costs at least eight bytes of stream, so a corrupt count ends the loop at the
// end of the stream instead of running on.
template <typename Map>
void readPairsKeepingExisting(CData& data, Map& map) {
    unsigned int count = 0;
    data >> count;
    for (unsigned int i = 0; i < count && !data.failed(); ++i) {
        typename Map::key_type key;
        typename Map::mapped_type value;
        data >> key >> value;
        if (data.failed()) {
            return;
        }
        map.emplace(key, value);  // does nothing when the key is already there
    }
}

}  // namespace

RComponentConfiguration::~RComponentConfiguration() = default;

void RComponentConfiguration::store(const char* key, const CString& text) {
    if (!key) {
        return;
    }
    mValues.insert_or_assign(RString(key), RString(text));
}

const RString* RComponentConfiguration::find(const char* key) const {
    if (!key) {
        return nullptr;
    }
    const auto found = mValues.find(RString(key));
    // A size of one is the terminating NUL alone; zero comes from an empty string on a stream.
    if (found == mValues.end() || found->second.getSize() <= 1) {
        return nullptr;
    }
    return &found->second;
}

void RComponentConfiguration::setInt(const char* key, int value) {
    store(key, CString::createWithFormat("%d", value));
}

void RComponentConfiguration::setFloat(const char* key, float value) {
    store(key, CString::createWithFormat("%f", static_cast<double>(value)));
}

void RComponentConfiguration::setString(const char* key, const char* value) {
    store(key, CString(value ? value : ""));
}

void RComponentConfiguration::setFourCC(const char* key, unsigned int code) {
    const unsigned char text[5] = {
        static_cast<unsigned char>(code >> 24), static_cast<unsigned char>(code >> 16),
        static_cast<unsigned char>(code >> 8), static_cast<unsigned char>(code), 0};
    CString value;
    value.append(sizeof text, text);
    store(key, value);
}

int RComponentConfiguration::getInt(const char* key, int def, int min, int max) const {
    const RString* text = find(key);
    if (!text) {
        return def;
    }
    const long value = std::strtol(text->c_str(), nullptr, 10);
    return static_cast<int>(clampToRange<long>(value, min, max));
}

float RComponentConfiguration::getFloat(const char* key, float def, float min, float max) const {
    const RString* text = find(key);
    return text ? clampToRange(std::strtof(text->c_str(), nullptr), min, max) : def;
}

double RComponentConfiguration::getFloat64(const char* key, double def, double min,
                                           double max) const {
    const RString* text = find(key);
    return text ? clampToRange(std::strtod(text->c_str(), nullptr), min, max) : def;
}

RString RComponentConfiguration::getString(const char* key, const char* def) const {
    const RString* text = find(key);
    return text ? *text : RString(def ? def : "");
}

unsigned int RComponentConfiguration::getFourCC(const char* key, unsigned int def) const {
    const RString* text = find(key);
    return text ? fourccFromText(text->c_str()) : def;
}

void RComponentConfiguration::print() const {}

CData& operator<<(CData& data, const RComponentConfiguration& configuration) {
    writePairs(data, configuration.getValues());
    return data;
}

CData& operator>>(CData& data, RComponentConfiguration& configuration) {
    readPairsKeepingExisting(data, configuration.mValues);
    return data;
}

CData& operator<<(CData& data, const RExporterConfiguration& configuration) {
    data << static_cast<const RComponentConfiguration&>(configuration);
    writePairs(data, configuration.getMetaData());
    return data;
}

CData& operator>>(CData& data, RExporterConfiguration& configuration) {
    data >> static_cast<RComponentConfiguration&>(configuration);
    readPairsKeepingExisting(data, configuration.mMetaData);
    return data;
}

}  // namespace CM
}  // namespace ZR
