// The command line of cmhost: a sub-command, its positional arguments and its options.
//
// Options are "--name value" or "--name=value"; flags are options without a value. Each
// sub-command says which options it knows and which take a value, and gives its --help
// text; anything else is a usage error, which the caller reports as one line followed by
// the command's usage.
#ifndef CMHOST_COMMANDLINE_H
#define CMHOST_COMMANDLINE_H

#include <map>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace cmhost {

// A mistake in the command line: what() is the line that says what is wrong, usage() the
// usage of the command concerned (empty when there is none to show).
class UsageError : public std::runtime_error {
public:
    explicit UsageError(const std::string& message, std::string usage = "")
        : std::runtime_error(message), mUsage(std::move(usage)) {}
    const std::string& usage() const { return mUsage; }

private:
    std::string mUsage;
};

// The usage part of a --help text: everything before its first blank line.
std::string usageOf(const char* help);

class CommandLine {
public:
    // Splits args (the words after the sub-command) by the options the command accepts:
    // `valued` take a value, `flags` do not, and --help is always a flag. Repeated valued
    // options keep every value. help is the command's --help text: its usage line(s), a
    // blank line, then what the command does; every UsageError carries the usage.
    CommandLine(const std::vector<std::string>& args, const char* help,
                const std::set<std::string>& valued, const std::set<std::string>& flags = {});

    // A UsageError about this command.
    UsageError error(const std::string& message) const;

    const std::vector<std::string>& positional() const { return mPositional; }
    // The positional argument at index, or a UsageError naming `what`.
    const std::string& positional(size_t index, const char* what) const;
    // Exactly these positional arguments, in this order: "missing NAME" names the first one
    // absent, and a word beyond them is unexpected.
    void expectPositionals(const std::vector<const char*>& names) const;

    bool has(const std::string& option) const { return mValues.count(option) != 0; }
    // The last value of an option, or `def` when it is absent.
    std::string value(const std::string& option, const std::string& def = "") const;
    std::vector<std::string> values(const std::string& option) const;
    // The option as a number within [min, max], `def` when absent; a UsageError otherwise.
    double number(const char* option, double def, double min, double max) const;

private:
    std::string mUsage;
    std::vector<std::string> mPositional;
    std::map<std::string, std::vector<std::string>> mValues;
};

// "key=value,key=value" into pairs; a UsageError for a piece without "=".
std::vector<std::pair<std::string, std::string>> parseSettings(const std::string& text);

}  // namespace cmhost

#endif
