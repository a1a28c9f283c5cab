#include "platform/path.hpp"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <deque>
#include <stdexcept>

#include "platform/os_error.hpp"

namespace platform {

namespace {

constexpr int kMaxSymlinks = 40;  // what the kernel allows before ELOOP

void push_components(std::string_view path, std::deque<std::string>& out, bool at_front) {
    std::vector<std::string> parts = split_path(path).parts;
    if (at_front) {
        out.insert(out.begin(), parts.begin(), parts.end());
    } else {
        out.insert(out.end(), parts.begin(), parts.end());
    }
}

std::string parent_of(const std::string& path) {
    const std::size_t slash = path.find_last_of('/');
    return slash == 0 || slash == std::string::npos ? "/" : path.substr(0, slash);
}

std::string join(const std::string& dir, const std::string& name) {
    return dir == "/" ? "/" + name : dir + "/" + name;
}

}  // namespace

PathParts split_path(std::string_view path) {
    PathParts result;
    if (path.starts_with('/')) result.root = "/";
    std::size_t pos = 0;
    while (pos <= path.size()) {
        std::size_t end = path.find('/', pos);
        if (end == std::string_view::npos) end = path.size();
        const std::string_view part = path.substr(pos, end - pos);
        if (!part.empty() && part != ".") result.parts.emplace_back(part);
        pos = end + 1;
    }
    return result;
}

bool is_absolute_path(std::string_view path) {
    return path.starts_with('/');
}

std::string current_directory() {
    std::string buf(PATH_MAX, '\0');
    while (::getcwd(buf.data(), buf.size()) == nullptr) {
        if (errno != ERANGE) throw OsError("cannot get the working directory", errno);
        buf.resize(buf.size() * 2);
    }
    buf.resize(buf.find('\0'));
    return buf;
}

std::string canonical_path(std::string_view path) {
    if (path.find('\0') != std::string_view::npos) {
        throw std::invalid_argument("embedded null byte in path");
    }
    std::deque<std::string> pending;
    if (!path.starts_with('/')) push_components(current_directory(), pending, false);
    push_components(path, pending, false);

    std::string resolved = "/";
    int links = 0;
    while (!pending.empty()) {
        const std::string part = std::move(pending.front());
        pending.pop_front();
        if (part == "..") {
            resolved = parent_of(resolved);
            continue;
        }
        const std::string candidate = join(resolved, part);
        // Every part is looked at, even after a missing one: "missing/../link" comes back.
        struct stat st {};
        if (::lstat(candidate.c_str(), &st) != 0) {
            if (errno != ENOENT && errno != ENOTDIR) {
                throw OsError("cannot inspect " + candidate, errno);
            }
            resolved = candidate;  // missing parts stay as written
            continue;
        }
        if (!S_ISLNK(st.st_mode)) {
            resolved = candidate;
            continue;
        }
        if (++links > kMaxSymlinks) throw OsError("cannot resolve " + candidate, ELOOP);
        std::string target(static_cast<std::size_t>(st.st_size > 0 ? st.st_size : PATH_MAX), '\0');
        const ssize_t n = ::readlink(candidate.c_str(), target.data(), target.size());
        if (n < 0) throw OsError("cannot read link " + candidate, errno);
        target.resize(static_cast<std::size_t>(n));
        if (target.starts_with('/')) resolved = "/";
        push_components(target, pending, true);
    }
    return resolved;
}

std::string normal_case(std::string_view path) {
    return std::string(path);
}

}  // namespace platform
