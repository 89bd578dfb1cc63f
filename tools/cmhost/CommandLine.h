// The command line of cmhost: a sub-command, its positional arguments and its options.
//
// Options are "--name value" or "--name=value"; flags are options without a value. Each
// sub-command says which options it knows and which take a value; anything else is a
// usage error, reported as one line by the caller.
#ifndef CMHOST_COMMANDLINE_H
#define CMHOST_COMMANDLINE_H

#include <map>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

namespace cmhost {

// A mistake in the command line; what() is the one line shown to the user.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

class CommandLine {
public:
    // Splits args (the words after the sub-command) by the options the command accepts:
    // `valued` take a value, `flags` do not. Repeated valued options keep every value.
    CommandLine(const std::vector<std::string>& args, const std::set<std::string>& valued,
                const std::set<std::string>& flags);

    const std::vector<std::string>& positional() const { return mPositional; }
    // The positional argument at index, or a UsageError naming `what`.
    const std::string& positional(size_t index, const char* what) const;
    void expectPositionalCount(size_t min, size_t max) const;

    bool has(const std::string& option) const { return mValues.count(option) != 0; }
    // The last value of an option, or `def` when it is absent.
    std::string value(const std::string& option, const std::string& def = "") const;
    std::vector<std::string> values(const std::string& option) const;
    // The option as a number within [min, max], `def` when absent; a UsageError otherwise.
    double number(const char* option, double def, double min, double max) const;

private:
    std::vector<std::string> mPositional;
    std::map<std::string, std::vector<std::string>> mValues;
};

// "key=value,key=value" into pairs; a UsageError for a piece without "=".
std::vector<std::pair<std::string, std::string>> parseSettings(const std::string& text);

}  // namespace cmhost

#endif
