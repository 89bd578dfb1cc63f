// sys_conf: the process-wide settings store.
//
// One XML configuration file is read once, at start-up, and its element tree flattened
// into dotted keys ("common.logging.filelog-path") with text values; everyone then asks for
// typed values with a default of their own. Repeated elements accumulate into one value
// separated by ";". Nothing is written back to the file.
//
// The instance is created thread-safely on first use. The map itself has no lock: the
// host loads the file on its main thread before components run, and the setters must not
// race with readers.
#ifndef CM_CMSYSCONF_H
#define CM_CMSYSCONF_H

#include <map>
#include <string>
#include <vector>

namespace ZR {
namespace CM {

class sys_conf {
public:
    static sys_conf& instance();

    // Reads the file once per process: a later call returns true and reads nothing. A
    // leading "@" in path (and in any value) stands for root. False when the file cannot
    // be opened, parsed or validated; keys read before the error stay.
    bool load_file(const char* path, const char* root);
    bool is_config_loaded() const { return m_loaded; }
    // Forgets every key and the loaded flag, so that one process may load another file
    // (tests and fuzzing do). Not for a running host: readers keep no lock.
    void clear();
    // Every key with its value, in key order.
    const std::map<std::string, std::string>& values() const { return m_values; }
    void set_validation(bool validate) { m_validation = validate; }

    // Missing keys and empty values give the default.
    std::string get_value(const char* key, const char* def) const;
    int get_int(const char* key, int def) const;
    bool get_bool(const char* key, bool def) const;  // exactly "true", "yes", "1" or "on"
    float get_float(const char* key, float def) const;
    // Exactly four characters, the first most significant; any other length gives 0.
    unsigned int get_fourcc(const char* key, const char* def) const;
    // Appends every piece that ends at a separator, then the rest when it is not empty.
    void get_array(std::vector<std::string>& out, const char* key, char separator) const;

    void set_value(const char* key, const char* value);
    void set_bool(const char* key, bool value);
    void set_int(const char* key, int value);
    void set_float(const char* key, float value);
    void set_fourcc(const char* key, int code);
    // Sets an absent or empty value, else appends ";" and the value.
    void append_value(const char* key, const char* value);

private:
    sys_conf() = default;
    sys_conf(const sys_conf&) = delete;
    sys_conf& operator=(const sys_conf&) = delete;

    // The value of key when present and not empty, else null.
    const std::string* find(const char* key) const;
    std::string expand_root(const char* text) const;

    std::map<std::string, std::string> m_values;
    std::string m_root;
    bool m_validation = true;
    bool m_loaded = false;
};

// Writes the decimal form of value, with a leading "-" for negatives and a terminating
// zero, into buffer (12 bytes always suffice).
void itoa(int value, char* buffer);

}  // namespace CM
}  // namespace ZR

#endif
