#pragma once
// Checks on the files the binder emulation trusts: its directories, the
// service registry's entries and the sockets they name. Another local user
// must not be able to plant or redirect any of them, so each must be owned
// by this user (or root), writable by no one else, and not a symbolic link;
// a socket named by a registry entry or by a reference from a peer must lie
// directly in the (canonical) binder directory.
//
// Stateless; any thread.

#include <sys/stat.h>

#include <string>

namespace android {
namespace hostbinder {

// The path with every symbolic link and "."/".." resolved; "" if it does not exist.
std::string canonicalPath(const std::string& path);

// True for a file owned by this user or root and writable by no one else.
bool isPrivate(const struct stat& st);

// Creates `dir` (and its parents) if needed and takes group and other write
// permission away from it if this user owns it; true when it then is a
// private directory (not a symbolic link).
bool ensurePrivateDirectory(const std::string& dir);

// True when `dir` is a private directory and not a symbolic link.
bool isPrivateDirectory(const std::string& dir);

// True when `path` is `canonicalDir` + "/" + a plain name, and is a private
// socket (not a symbolic link).
bool isTrustedSocket(const std::string& path, const std::string& canonicalDir);

}  // namespace hostbinder
}  // namespace android
