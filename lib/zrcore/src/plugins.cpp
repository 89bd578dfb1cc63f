#include <zrcore/plugins.h>

#include <zrbase/path.h>
#include <zrbase/string_with_format.h>

#include <libxml/parser.h>
#include <libxml/tree.h>
#include <libxml/valid.h>

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <exception>
#include <memory>
#include <regex>

namespace zrcore {

namespace {

constexpr char k_descriptor_suffix[] = ".plugin.xml";
// A descriptor lists a handful of identifiers; a larger file is not one.
constexpr off_t k_max_descriptor_size = 256 * 1024;
// std::regex recurses once per character of the pattern it compiles and of the text it
// matches, so both are kept short enough for any thread's stack. Identifiers and the
// patterns built from URI schemes are far shorter.
constexpr std::size_t k_max_id_length = 1024;
constexpr std::size_t k_max_pattern_length = 1024;

struct dir_closer {
    void operator()(DIR* dir) const { closedir(dir); }
};
struct dtd_deleter {
    void operator()(xmlDtd* dtd) const { xmlFreeDtd(dtd); }
};
struct doc_deleter {
    void operator()(xmlDoc* doc) const { xmlFreeDoc(doc); }
};
struct valid_deleter {
    void operator()(xmlValidCtxt* context) const { xmlFreeValidCtxt(context); }
};
struct xml_char_deleter {
    void operator()(xmlChar* text) const { xmlFree(text); }
};

class descriptor_fd {
public:
    explicit descriptor_fd(int fd) : m_fd(fd) {}
    ~descriptor_fd() {
        if (m_fd >= 0) {
            ::close(m_fd);
        }
    }
    descriptor_fd(descriptor_fd const&) = delete;
    descriptor_fd& operator=(descriptor_fd const&) = delete;
    int get() const { return m_fd; }

private:
    int m_fd;
};

// What a valid descriptor says.
struct descriptor {
    std::string library;
    std::vector<std::string> ids;
};

bool ends_with(std::string const& text, char const* suffix) {
    const std::size_t length = std::strlen(suffix);
    return text.size() > length && text.compare(text.size() - length, length, suffix) == 0;
}

// The names of the descriptors in directory in byte order; none when it cannot be read.
std::vector<std::string> descriptor_names(std::string const& directory) {
    const std::unique_ptr<DIR, dir_closer> dir(opendir(directory.c_str()));
    std::vector<std::string> names;
    if (!dir) {
        return names;
    }
    while (const dirent* item = readdir(dir.get())) {
        if (ends_with(item->d_name, k_descriptor_suffix)) {
            names.emplace_back(item->d_name);
        }
    }
    std::sort(names.begin(), names.end());
    return names;
}

// The validation context's error and warning callback: libxml2's message, to stderr.
__attribute__((format(printf, 2, 3))) void print_to_stderr(void*, char const* format, ...) {
    va_list args;
    va_start(args, format);
    std::vfprintf(stderr, format, args);
    va_end(args);
}

std::string attribute(xmlNode const* element, char const* name) {
    const std::unique_ptr<xmlChar, xml_char_deleter> value(
        xmlGetProp(element, reinterpret_cast<xmlChar const*>(name)));
    return value ? std::string(reinterpret_cast<char const*>(value.get())) : std::string();
}

bool is_named(xmlNode const* node, char const* name) {
    return xmlStrcmp(node->name, reinterpret_cast<xmlChar const*>(name)) == 0;
}

// The library must lie beside its descriptor.
bool is_plain_file_name(std::string const& name) {
    return !name.empty() && name != "." && name != ".." && name.find('/') == std::string::npos;
}

// Fills out from the descriptor at path after validating it against dtd. What is wrong
// with a descriptor goes to standard error.
bool read_descriptor(std::string const& path, xmlDtd* dtd, descriptor& out) {
    // A FIFO or a device would block or never end: only a regular file of modest size.
    const descriptor_fd file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    struct stat status {};
    if (file.get() < 0 || ::fstat(file.get(), &status) != 0) {
        std::fprintf(stderr, "%s: cannot open: %s\n", path.c_str(), std::strerror(errno));
        return false;
    }
    if (!S_ISREG(status.st_mode) || status.st_size > k_max_descriptor_size) {
        std::fprintf(stderr, "%s: not a regular file of at most %lld bytes\n", path.c_str(),
                     static_cast<long long>(k_max_descriptor_size));
        return false;
    }
    // The URL names the file in libxml2's messages; NONET keeps entities off the network.
    const std::unique_ptr<xmlDoc, doc_deleter> doc(
        xmlReadFd(file.get(), path.c_str(), nullptr, XML_PARSE_NONET));
    const std::unique_ptr<xmlValidCtxt, valid_deleter> validation(xmlNewValidCtxt());
    if (!doc || !validation) {
        return false;
    }
    validation->error = print_to_stderr;
    validation->warning = print_to_stderr;
    // Validation against a separate DTD does not look at the root's name.
    xmlNode const* root = xmlDocGetRootElement(doc.get());
    if (xmlValidateDtd(validation.get(), doc.get(), dtd) != 1 || !root ||
        !is_named(root, "plugin")) {
        std::fprintf(stderr, "%s: not a valid plug-in descriptor\n", path.c_str());
        return false;
    }
    out.library = attribute(root, "library");
    if (!is_plain_file_name(out.library)) {
        std::fprintf(stderr, "%s: the library \"%s\" is not a file name beside it\n", path.c_str(),
                     out.library.c_str());
        return false;
    }
    for (xmlNode const* child = root->children; child; child = child->next) {
        if (child->type != XML_ELEMENT_NODE || !is_named(child, "provides")) {
            continue;
        }
        std::string id = attribute(child, "id");
        if (id.empty() || id.size() > k_max_id_length) {
            std::fprintf(stderr, "%s: identifiers have 1 to %zu characters\n", path.c_str(),
                         k_max_id_length);
            return false;
        }
        out.ids.push_back(std::move(id));
    }
    return true;
}

}  // namespace

plugins::plugins(std::string const& dtd_path) : m_dtd_path(dtd_path) {}

plugins::~plugins() {
    // The libraries were opened with RTLD_NODELETE: this only gives the handles back.
    for (library const& item : m_libraries) {
        if (item.handle) {
            dlclose(item.handle);
        }
    }
}

std::size_t plugins::load_plugins(std::string const& directory) {
    const std::vector<std::string> names = descriptor_names(directory);
    if (names.empty()) {
        return 0;
    }
    xmlInitParser();
    const std::string dtd_file = zrbase::string_with_format("%s/plugin.dtd", m_dtd_path.c_str());
    const std::unique_ptr<xmlDtd, dtd_deleter> dtd(
        xmlParseDTD(nullptr, reinterpret_cast<xmlChar const*>(dtd_file.c_str())));
    if (!dtd) {
        std::fprintf(stderr, "%s: cannot read the plug-in document type; plug-ins in %s skipped\n",
                     dtd_file.c_str(), directory.c_str());
        return 0;
    }
    std::size_t added = 0;
    for (std::string const& name : names) {
        std::string path = directory;
        zrbase::path_append(path, name);
        descriptor found;
        if (!read_descriptor(path, dtd.get(), found)) {
            continue;
        }
        std::string library_path = directory;
        zrbase::path_append(library_path, found.library);
        const std::lock_guard<std::mutex> lock(m_mutex);
        added += register_locked(library_path, found.ids);
    }
    return added;
}

std::vector<std::string> plugins::find_plugins(std::string const& pattern) const {
    std::vector<std::string> ids;
    if (pattern.size() > k_max_pattern_length) {
        std::fprintf(stderr, "plug-in pattern longer than %zu characters\n", k_max_pattern_length);
        return ids;
    }
    // Compiled under the lock as well: the regex scanner goes through ctype<char>::narrow,
    // which fills a cache shared by the whole process without synchronisation (GCC bug
    // 77704), so two registry users must not compile at once.
    const std::lock_guard<std::mutex> lock(m_mutex);
    std::regex expression;
    try {
        expression.assign(pattern, std::regex::ECMAScript);
    } catch (std::regex_error const& e) {
        std::fprintf(stderr, "invalid plug-in pattern \"%s\": %s\n", pattern.c_str(), e.what());
        return ids;
    }
    for (entry const& item : m_entries) {
        if (std::regex_match(item.id, expression)) {
            ids.push_back(item.id);
        }
    }
    return ids;
}

ZR::RPtr<plugin> plugins::create_with_id(std::string const& id) {
    zrcore_plugin_create_function create = nullptr;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        const auto found = std::find_if(m_entries.begin(), m_entries.end(),
                                        [&id](entry const& item) { return item.id == id; });
        if (found == m_entries.end()) {
            return ZR::RPtr<plugin>();
        }
        create = factory_locked(found->library);
    }
    if (!create) {
        return ZR::RPtr<plugin>();
    }
    // The factory runs unlocked: it may take its time, and it may use the registry.
    try {
        return ZR::RPtr<plugin>(create(id.c_str()));
    } catch (std::exception const& e) {
        std::fprintf(stderr, "plug-in %s: %s\n", id.c_str(), e.what());
    } catch (...) {
        std::fprintf(stderr, "plug-in %s: unknown exception\n", id.c_str());
    }
    return ZR::RPtr<plugin>();
}

std::size_t plugins::register_locked(std::string const& library_path,
                                     std::vector<std::string> const& ids) {
    const auto found =
        std::find_if(m_libraries.begin(), m_libraries.end(),
                     [&library_path](library const& item) { return item.path == library_path; });
    const std::size_t index = static_cast<std::size_t>(found - m_libraries.begin());
    if (found == m_libraries.end()) {
        m_libraries.push_back(library{library_path, nullptr, nullptr});
    }
    std::size_t added = 0;
    for (std::string const& id : ids) {
        const bool known = std::any_of(m_entries.begin(), m_entries.end(),
                                       [&id](entry const& item) { return item.id == id; });
        if (!known) {
            m_entries.push_back(entry{id, index});
            ++added;
        }
    }
    return added;
}

zrcore_plugin_create_function plugins::factory_locked(std::size_t index) {
    library& item = m_libraries[index];
    if (item.create) {
        return item.create;
    }
    // RTLD_NODELETE keeps the code of the objects a library created mapped after the
    // registry lets the library go; RTLD_NOW finds missing symbols here, not in a call.
    void* handle = dlopen(item.path.c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
    if (!handle) {
        std::fprintf(stderr, "cannot load plug-in: %s\n", dlerror());
        return nullptr;
    }
    const auto abi =
        reinterpret_cast<zrcore_plugin_abi_function>(dlsym(handle, ZRCORE_PLUGIN_ABI_SYMBOL));
    const auto create =
        reinterpret_cast<zrcore_plugin_create_function>(dlsym(handle, ZRCORE_PLUGIN_CREATE_SYMBOL));
    if (!abi || !create) {
        std::fprintf(stderr, "%s: no plug-in entry point\n", item.path.c_str());
        dlclose(handle);
        return nullptr;
    }
    if (abi() != k_plugin_abi) {
        std::fprintf(stderr, "%s: plug-in contract %u, expected %u\n", item.path.c_str(), abi(),
                     k_plugin_abi);
        dlclose(handle);
        return nullptr;
    }
    item.handle = handle;
    item.create = create;
    return create;
}

}  // namespace zrcore
