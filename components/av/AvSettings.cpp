#include "av/AvSettings.h"

#include "av/AvLibrary.h"

#include <cm/CMComponentStatus.h>

#include <cerrno>
#include <cstdlib>
#include <sstream>

namespace cmcomponents {

namespace {

bool isChoice(const char* choices, const std::string& word) {
    std::istringstream words(choices);
    std::string candidate;
    while (words >> candidate) {
        if (candidate == word) {
            return true;
        }
    }
    return false;
}

}  // namespace

CAvSettings::CAvSettings(std::string owner, std::vector<SettingSpec> specs)
    : mOwner(std::move(owner)), mSpecs(std::move(specs)) {}

const SettingSpec* CAvSettings::find(const std::string& key) const {
    for (const SettingSpec& spec : mSpecs) {
        if (key == spec.key) {
            return &spec;
        }
    }
    return nullptr;
}

std::string CAvSettings::rejection(const SettingSpec& spec, const std::string& text) {
    switch (spec.kind) {
        case SettingSpec::Kind::kInteger: {
            errno = 0;
            char* end = nullptr;
            const long long value = std::strtoll(text.c_str(), &end, 10);
            if (end == text.c_str() || *end != '\0' || errno == ERANGE) {
                return "is not a whole number";
            }
            if (value < spec.min || value > spec.max) {
                return "is not between " + std::to_string(spec.min) + " and " +
                       std::to_string(spec.max);
            }
            return "";
        }
        case SettingSpec::Kind::kChoice:
            return isChoice(spec.choices, text) ? "" : std::string("is not one of ") + spec.choices;
        case SettingSpec::Kind::kText:
            return "";
    }
    return "";
}

int CAvSettings::configure(const ZR::CM::RComponentConfiguration& configuration, std::string& why) {
    std::map<std::string, std::string> values;
    for (const auto& entry : configuration.getValues()) {
        const std::string key = entry.first.c_str();
        const std::string value = entry.second.c_str();
        if (value.empty()) {
            continue;  // an empty value counts as absent
        }
        const SettingSpec* spec = find(key);
        if (!spec) {
            std::string known;
            for (const SettingSpec& s : mSpecs) {
                known += (known.empty() ? "" : ", ") + std::string(s.key);
            }
            why = mOwner + " has no setting \"" + key + "\" (it takes " +
                  (known.empty() ? std::string("none") : known) + ")";
            return ZR::CM::kResultSettingParseFailed;
        }
        const std::string wrong = rejection(*spec, value);
        if (!wrong.empty()) {
            why = mOwner + ": " + key + " \"" + value + "\" " + wrong;
            return ZR::CM::kResultSettingParseFailed;
        }
        values[key] = value;
    }
    mValues = std::move(values);
    return ZR::CM::kResultOK;
}

std::string CAvSettings::get(const char* key) const {
    const auto found = mValues.find(key);
    if (found != mValues.end()) {
        return found->second;
    }
    const SettingSpec* spec = find(key);
    return spec && spec->fallback ? spec->fallback : "";
}

int CAvSettings::applyTo(AVCodecContext& context, std::string& why) const {
    for (const SettingSpec& spec : mSpecs) {
        if (spec.target == SettingSpec::Target::kComponent) {
            continue;
        }
        const std::string value = get(spec.key);
        if (value.empty()) {
            continue;
        }
        void* target = spec.target == SettingSpec::Target::kCodec ? static_cast<void*>(&context)
                                                                  : context.priv_data;
        const int error =
            target ? av_opt_set(target, spec.option, value.c_str(), 0) : AVERROR_OPTION_NOT_FOUND;
        if (error < 0) {
            why = mOwner + ": " + spec.key + " \"" + value + "\" not taken: " + errorText(error);
            return error;
        }
    }
    return 0;
}

}  // namespace cmcomponents
