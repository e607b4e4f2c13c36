#include "listening_socket.hpp"

#include <sys/socket.h>

#include <cerrno>
#include <cstring>

#include "exchange.h"

namespace {

[[noreturn]] void fail(const std::string& path, const std::string& what) { throw SocketError(path + ": " + what); }

FileDescriptor make_socket(const std::string& path) {
    FileDescriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (socket.get() < 0) fail(path, std::strerror(errno));
    return socket;
}

const sockaddr* generic(const sockaddr_un& address) { return reinterpret_cast<const sockaddr*>(&address); }

// Two services that start at the same moment over one stale file could both get here and the later one win; who must
// exclude that gives each service a path of its own.
void remove_stale_socket(const std::string& path, const sockaddr_un& address) {
    struct stat file;
    if (lstat(path.c_str(), &file) != 0) fail(path, std::strerror(errno));
    if (!S_ISSOCK(file.st_mode)) fail(path, "this exists and is not a socket");
    FileDescriptor probe = make_socket(path);
    // EAGAIN: somebody listens, but so many clients are waiting that there is no room for this one.
    if (connect(probe.get(), generic(address), sizeof address) == 0 || errno == EAGAIN) {
        fail(path, "this socket is in use by a running service");
    }
    if (errno != ECONNREFUSED) fail(path, std::strerror(errno));
    if (unlink(path.c_str()) != 0) fail(path, std::string("cannot remove the stale socket: ") + std::strerror(errno));
}

}  // namespace

ListeningSocket::ListeningSocket(const std::string& path) : path_(path), socket_(make_socket(path)) {
    sockaddr_un address;
    if (!exchange_address(path.c_str(), &address)) {
        fail("\"" + path + "\"", "a socket path has 1 to " + std::to_string(sizeof address.sun_path - 1) + " bytes");
    }
    if (bind(socket_.get(), generic(address), sizeof address) != 0) {
        if (errno != EADDRINUSE) fail(path, std::strerror(errno));
        remove_stale_socket(path, address);
        if (bind(socket_.get(), generic(address), sizeof address) != 0) fail(path, std::strerror(errno));
    }
    if (lstat(path.c_str(), &file_) != 0 || listen(socket_.get(), SOMAXCONN) != 0) fail(path, std::strerror(errno));
}

ListeningSocket::~ListeningSocket() {
    struct stat now;
    if (lstat(path_.c_str(), &now) != 0) return;
    if (now.st_dev == file_.st_dev && now.st_ino == file_.st_ino) unlink(path_.c_str());
}
