// Component configurations: the settings bag a component receives before it runs.
//
// RComponentConfiguration maps text keys to text values; numbers are kept in their printed
// decimal form and FourCC codes as their four characters, and every getter takes a default
// (and, for numbers, a range) so a component never sees a missing or out-of-range setting.
// A value whose text is empty counts as absent. The CMetaData base is a second map that
// only copies and the exporter's stream form carry.
//
// One configuration per kind of component derives from it. All share the base's stream
// form except RExporterConfiguration, whose stream form also carries the metadata map.
//
// Whoever builds a processing chain fills a configuration on one thread and hands it to the
// component (by reference or through ZR::RPtr); afterwards it is only read. There is no lock.
#ifndef CM_CMCOMPONENTCONFIGURATION_H
#define CM_CMCOMPONENTCONFIGURATION_H

#include <cm/CMMetaData.h>
#include <zr/CBuffer.h>
#include <zr/CData.h>
#include <zrbase/object_refcount.h>

#include <map>

namespace ZR {
namespace CM {

class RComponentConfiguration : public zrbase::object_refcount, public CMetaData {
public:
    using Map = std::map<RString, RString>;  // ordered by CBuffer::operator<

    RComponentConfiguration() = default;
    // Copies every entry of both maps into new strings.
    RComponentConfiguration(const RComponentConfiguration& other) = default;
    RComponentConfiguration& operator=(const RComponentConfiguration& other) = default;
    ~RComponentConfiguration() override;

    // Setters insert the key or replace its value. A null key is ignored; a null text is
    // stored as the empty text, which reads back as absent.
    void setInt(const char* key, int value);
    void setFloat(const char* key, float value);  // "%f": six decimals
    void setString(const char* key, const char* value);
    void setFourCC(const char* key, unsigned int code);  // "avc1" for 0x61766331

    // Getters return the default, unclamped, when the key is absent, null or empty;
    // otherwise the stored number clamped into [min, max] (a NaN reads as min).
    int getInt(const char* key, int def, int min, int max) const;
    float getFloat(const char* key, float def, float min, float max) const;
    double getFloat64(const char* key, double def, double min, double max) const;
    RString getString(const char* key, const char* def) const;
    // The first four characters of the value, the first most significant; a shorter value
    // counts as padded with zero bytes.
    unsigned int getFourCC(const char* key, unsigned int def) const;

    // Settings are not shown anywhere; kept so that callers may ask.
    void print() const;

    const Map& getValues() const { return mValues; }

private:
    friend CData& operator>>(CData& data, RComponentConfiguration& configuration);

    // The stored value of key, or null when it counts as absent.
    const RString* find(const char* key) const;
    void store(const char* key, const CString& text);

    Map mValues;
};

class RDecompressorConfiguration : public RComponentConfiguration {};
class RCompressorConfiguration : public RComponentConfiguration {};
class RConverterConfiguration : public RComponentConfiguration {};
class RFilterConfiguration : public RComponentConfiguration {};
class RPacketizerConfiguration : public RComponentConfiguration {};
class RImporterConfiguration : public RComponentConfiguration {};

// The one configuration whose stream form carries its metadata map too.
class RExporterConfiguration : public RComponentConfiguration {
private:
    friend CData& operator>>(CData& data, RExporterConfiguration& configuration);
};

// The entry count (32-bit big-endian), then each key and value as strings in key order.
// Reading inserts only keys the configuration does not hold yet: existing values win, and
// nothing is cleared first. A truncated stream keeps the complete pairs before the break
// and sets data.failed().
// Implemented by components that take settings besides the importer's and exporter's own
// configure() (filters, packetizers): the host hands such a component its configuration
// after init() and before start(). 0 accepts it; anything else is a result code.
class CConfigurableP {
public:
    virtual ~CConfigurableP() = default;
    virtual int configure(RComponentConfiguration& configuration) = 0;
};

CData& operator<<(CData& data, const RComponentConfiguration& configuration);
CData& operator>>(CData& data, RComponentConfiguration& configuration);

// The base form, then the metadata map in the same shape and with the same reading rule.
CData& operator<<(CData& data, const RExporterConfiguration& configuration);
CData& operator>>(CData& data, RExporterConfiguration& configuration);

}  // namespace CM
}  // namespace ZR

#endif
