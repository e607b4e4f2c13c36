// The socket at which clients find the service.
#pragma once

#include <sys/stat.h>
#include <unistd.h>

#include <stdexcept>
#include <string>
#include <utility>

// What is wrong with the socket path, in one line.
struct SocketError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

class FileDescriptor {
public:
    explicit FileDescriptor(int number) : number_(number) {}
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;
    FileDescriptor(FileDescriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept {
        std::swap(number_, other.number_);
        return *this;
    }
    ~FileDescriptor() {
        if (number_ >= 0) close(number_);
    }
    int get() const { return number_; }

private:
    int number_;
};

class ListeningSocket {
public:
    // Binds and listens, without blocking; throws SocketError. A socket file that a killed service left behind is
    // replaced; the socket of a service that lives, and a file of another kind, are left alone.
    explicit ListeningSocket(const std::string& path);

    ListeningSocket(const ListeningSocket&) = delete;
    ListeningSocket& operator=(const ListeningSocket&) = delete;

    // Removes the socket file, unless it is somebody else's by now.
    ~ListeningSocket();

    int get() const { return socket_.get(); }

private:
    std::string path_;
    FileDescriptor socket_;
    struct stat file_;  // as bound
};
