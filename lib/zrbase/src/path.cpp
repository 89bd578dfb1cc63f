#include <zrbase/path.h>

#include <cctype>

namespace zrbase {

namespace {

// Where the file part starts: just after the last '/', or 0.
std::string::size_type file_start(std::string const& path) {
    const auto slash = path.rfind('/');
    return slash == std::string::npos ? 0 : slash + 1;
}

// Where the suffix of the file part starts, or npos when it has none.
std::string::size_type suffix_start(std::string const& path) {
    const auto file = file_start(path);
    const auto dot = path.rfind('.');
    if (dot == std::string::npos || dot <= file) {
        return std::string::npos;
    }
    return dot;
}

}  // namespace

std::string path_directory(std::string const& path) {
    const auto slash = path.rfind('/');
    if (slash == std::string::npos) {
        return std::string();
    }
    return slash == 0 ? std::string("/") : path.substr(0, slash);
}

std::string path_name(std::string const& path) {
    const auto file = file_start(path);
    const auto suffix = suffix_start(path);
    return path.substr(file, suffix == std::string::npos ? std::string::npos : suffix - file);
}

std::string path_suffix(std::string const& path) {
    const auto suffix = suffix_start(path);
    return suffix == std::string::npos ? std::string() : path.substr(suffix);
}

void path_set_directory(std::string& path, std::string const& directory) {
    std::string result = directory;
    const std::string file = path.substr(file_start(path));
    if (!file.empty() && !result.empty() && result.back() != '/') {
        result += '/';
    }
    path = result + file;
}

void path_set_file(std::string& path, std::string const& file) {
    path.replace(file_start(path), std::string::npos, file);
}

void path_append(std::string& path, std::string const& piece) {
    if (piece.empty()) {
        return;
    }
    if (path.empty()) {
        path = piece;
        return;
    }
    const bool ends = path.back() == '/';
    const bool starts = piece.front() == '/';
    if (ends && starts) {
        path.append(piece, 1, std::string::npos);
    } else {
        if (!ends && !starts) {
            path += '/';
        }
        path += piece;
    }
}

std::string url_scheme(std::string const& url, bool lower_case) {
    if (url.empty() || !std::isalpha(static_cast<unsigned char>(url[0]))) {
        return std::string();
    }
    std::string::size_type end = 1;
    while (end < url.size()) {
        const auto c = static_cast<unsigned char>(url[end]);
        if (!std::isalnum(c) && c != '+' && c != '-' && c != '.') {
            break;
        }
        ++end;
    }
    if (end == url.size() || url[end] != ':') {
        return std::string();
    }
    std::string scheme = url.substr(0, end);
    if (lower_case) {
        for (char& c : scheme) {
            c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        }
    }
    return scheme;
}

}  // namespace zrbase
