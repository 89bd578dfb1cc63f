// Helpers for the texts that name files: POSIX paths split at their last '/', and the
// scheme of a URL.
//
// A path is "directory/name.suffix". The directory is everything before the last '/'
// ("/" itself for a file at the root), the file part everything after it. The suffix is
// the file part from its last '.', unless that dot starts the file part (".profile" has
// no suffix). Nothing here touches the file system or resolves "." and "..".
#ifndef ZRBASE_PATH_H
#define ZRBASE_PATH_H

#include <string>

namespace zrbase {

// "/var/log/app.log" gives "/var/log"; "/app.log" gives "/"; "app.log" gives "".
std::string path_directory(std::string const& path);
// The file part without its suffix: "/var/log/app.log" gives "app".
std::string path_name(std::string const& path);
// The suffix with its dot: "/var/log/app.log" gives ".log"; "/var/log/trace" gives "".
std::string path_suffix(std::string const& path);

// Replaces the directory of path, keeping its file part; a '/' joins the two only when
// there is a file part and directory does not already end with one.
void path_set_directory(std::string& path, std::string const& directory);
// Replaces the file part of path (everything after its last '/').
void path_set_file(std::string& path, std::string const& file);
// Joins piece onto path with exactly one '/' between them.
void path_append(std::string& path, std::string const& piece);

// The scheme of a URL, "rtsp" for "rtsp://host/x", or "" when the text has none: the
// scheme is a letter followed by letters, digits, '+', '-' or '.', ended by ':'.
// lower_case asks for the scheme in lower case (schemes compare without regard to case).
std::string url_scheme(std::string const& url, bool lower_case);

}  // namespace zrbase

#endif
