// CAvSettings: the settings an FFmpeg component takes, checked against a table and then
// handed to FFmpeg's codec options.
//
// Each component lists what it takes as SettingSpec rows: the key, what values it accepts
// (a whole number in a range, one word of a list, or any text the component checks
// itself), and where the value goes (the codec context's options, the codec's private
// options, or the component alone), with a fallback applied when the key is absent.
// configure() rejects a key the table does not have and a value it does not accept, with a
// line that says which and what would do; unlike the getters of RComponentConfiguration,
// nothing is clamped, so a user's mistake never passes unnoticed.
//
// Belongs to its component: filled by configure() on the application's thread before the
// run, read on the component's thread during it.
#ifndef CM_COMPONENTS_AV_AVSETTINGS_H
#define CM_COMPONENTS_AV_AVSETTINGS_H

#include "av/AvObjects.h"

#include <cm/CMComponentConfiguration.h>

#include <map>
#include <string>
#include <vector>

namespace cmcomponents {

struct SettingSpec {
    enum class Kind { kInteger, kChoice, kText };
    enum class Target { kComponent, kCodec, kCodecPrivate };

    const char* key;
    Kind kind;
    long long min;        // kInteger
    long long max;        // kInteger
    const char* choices;  // kChoice: the words it accepts, separated by single spaces
    Target target;
    const char* option;    // the FFmpeg option it sets (kCodec, kCodecPrivate)
    const char* fallback;  // applied when the key is absent; null: FFmpeg's own default
};

class CAvSettings {
public:
    // owner names the component in messages ("h264 encoder").
    CAvSettings(std::string owner, std::vector<SettingSpec> specs);

    // Takes every value of configuration: 0, or kResultSettingParseFailed with a line in
    // why when a key is unknown or a value not accepted; the settings taken before stay.
    int configure(const ZR::CM::RComponentConfiguration& configuration, std::string& why);
    // The value of key, else its fallback, else "".
    std::string get(const char* key) const;
    // Sets every codec option that has a value or a fallback: 0, or an FFmpeg error with a
    // line in why.
    int applyTo(AVCodecContext& context, std::string& why) const;

private:
    const SettingSpec* find(const std::string& key) const;
    // Empty when text is a value spec accepts, else what is wrong with it.
    static std::string rejection(const SettingSpec& spec, const std::string& text);

    std::string mOwner;
    std::vector<SettingSpec> mSpecs;
    std::map<std::string, std::string> mValues;
};

}  // namespace cmcomponents

#endif
