#include "CommandLine.h"

#include <cstdio>
#include <cstdlib>

namespace cmhost {

std::string usageOf(const char* help) {
    const std::string text = help;
    return text.substr(0, text.find("\n\n"));
}

CommandLine::CommandLine(const std::vector<std::string>& args, const char* help,
                         const std::set<std::string>& valued, const std::set<std::string>& flags)
    : mUsage(usageOf(help)) {
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& word = args[i];
        if (word.size() < 2 || word[0] != '-' || word == "--") {
            mPositional.push_back(word);
            continue;
        }
        std::string name = word;
        std::string inlineValue;
        const size_t equals = word.find('=');
        const bool hasInline = equals != std::string::npos;
        if (hasInline) {
            name = word.substr(0, equals);
            inlineValue = word.substr(equals + 1);
        }
        if (flags.count(name) || name == "--help") {
            if (hasInline) {
                throw error("option " + name + " takes no value");
            }
            mValues[name];
            continue;
        }
        if (!valued.count(name)) {
            throw error("unknown option " + name);
        }
        if (hasInline) {
            mValues[name].push_back(inlineValue);
        } else if (i + 1 < args.size()) {
            mValues[name].push_back(args[++i]);
        } else {
            throw error("option " + name + " needs a value");
        }
    }
}

UsageError CommandLine::error(const std::string& message) const {
    return UsageError(message, mUsage);
}

const std::string& CommandLine::positional(size_t index, const char* what) const {
    if (index >= mPositional.size()) {
        throw error(std::string("missing ") + what);
    }
    return mPositional[index];
}

void CommandLine::expectPositionals(const std::vector<const char*>& names) const {
    if (mPositional.size() < names.size()) {
        throw error(std::string("missing ") + names[mPositional.size()]);
    }
    if (mPositional.size() > names.size()) {
        throw error("unexpected argument " + mPositional[names.size()]);
    }
}

std::string CommandLine::value(const std::string& option, const std::string& def) const {
    const auto found = mValues.find(option);
    if (found == mValues.end() || found->second.empty()) {
        return def;
    }
    return found->second.back();
}

std::vector<std::string> CommandLine::values(const std::string& option) const {
    const auto found = mValues.find(option);
    return found == mValues.end() ? std::vector<std::string>() : found->second;
}

double CommandLine::number(const char* option, double def, double min, double max) const {
    const std::string text = value(option);
    if (text.empty()) {
        return def;
    }
    char* end = nullptr;
    const double result = std::strtod(text.c_str(), &end);
    if (end == text.c_str() || *end != 0 || !(result >= min && result <= max)) {
        char range[96];
        std::snprintf(range, sizeof range, " must be a number from %g to %g", min, max);
        throw error(option + std::string(range));
    }
    return result;
}

std::vector<std::pair<std::string, std::string>> parseSettings(const std::string& text) {
    std::vector<std::pair<std::string, std::string>> settings;
    size_t start = 0;
    while (start < text.size()) {
        size_t end = text.find(',', start);
        if (end == std::string::npos) {
            end = text.size();
        }
        const std::string piece = text.substr(start, end - start);
        const size_t equals = piece.find('=');
        if (equals == std::string::npos || equals == 0) {
            throw UsageError("setting '" + piece + "' is not key=value");
        }
        settings.emplace_back(piece.substr(0, equals), piece.substr(equals + 1));
        start = end + 1;
    }
    return settings;
}

}  // namespace cmhost
