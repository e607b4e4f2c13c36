// `vesk record`: runs a program with the library that notes its calls preloaded.
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <iostream>
#include <string_view>

#include "recorder/recorded_types.hpp"
#include "tools/vesk/failure.hpp"
#include "tools/vesk/output.hpp"
#include "tools/vesk/program_file.hpp"
#include "tools/vesk/recording.hpp"
#include "tools/vesk/request.hpp"

namespace vesk::tool {
namespace {

using recording::Header;

std::uint64_t nanoseconds(clockid_t clock) {
    timespec time{};
    clock_gettime(clock, &time);
    return static_cast<std::uint64_t>(time.tv_sec) * 1000000000 + static_cast<std::uint64_t>(time.tv_nsec);
}

[[noreturn]] void fail(const std::string& what) { throw Failure(what + ": " + because(errno)); }

// "64M" and the like: bytes, or K, M or G of 1024, 1024^2 and 1024^3.
std::uint64_t read_size(const std::string& text) {
    constexpr std::uint64_t most = PTRDIFF_MAX;  // of what can be mapped
    constexpr std::string_view units = "KMG";
    std::uint64_t size = 0;
    std::size_t at = 0;
    for (; at < text.size() && text[at] >= '0' && text[at] <= '9' && size < most / 16; ++at) {
        size = size * 10 + static_cast<std::uint64_t>(text[at] - '0');
    }
    const std::size_t unit = at + 1 == text.size() && at != 0 ? units.find(text[at]) : units.npos;
    const std::size_t shift = unit != units.npos ? 10 * (unit + 1) : 0;
    if (at == 0 || (at != text.size() && shift == 0) || size > most >> shift) {
        throw Failure("--limit takes bytes, such as 512K, 64M or 2G, not " + quote(text), status_usage);
    }
    return size << shift;
}

// The file while it is recorded into. It takes the place of an older one of its name, whose readers keep that; unless
// the program has started the older one comes back.
class RecordingFile {
public:
    RecordingFile(const std::string& name, std::uint64_t size) : name_(name), size_(size) {
        struct stat status;
        if (stat(name.c_str(), &status) == 0 && !S_ISREG(status.st_mode)) {
            throw Failure(quote_name(name) + ": exists and is no regular file");
        }
        std::string aside = name + ".XXXXXX";
        file_ = mkostemp(aside.data(), O_CLOEXEC);  // which only its owner may read or write
        if (file_ < 0) fail(quote_name(name));
        std::signal(SIGXFSZ, SIG_IGN);
        errno = posix_fallocate(file_, 0, static_cast<off_t>(size));
        std::signal(SIGXFSZ, SIG_DFL);
        if (errno == 0) map();
        const int why_not = errno;
        older_ = aside + ".older";
        if (link(name.c_str(), older_.c_str()) != 0) older_.clear();  // there is none, or no links
        errno = why_not;
        if (errno == 0 && rename(aside.c_str(), name.c_str()) == 0) return;
        const int why = errno;
        unlink(aside.c_str());
        if (!older_.empty()) unlink(older_.c_str());
        close(file_);
        errno = why;
        fail(quote_name(name) + ": cannot set the limit's " + std::to_string(size) + " bytes aside");
    }
    ~RecordingFile() {
        munmap(header_, size_);
        close(file_);
        if (stays_) return;
        if (older_.empty() || rename(older_.c_str(), name_.c_str()) != 0) unlink(name_.c_str());
    }
    RecordingFile(const RecordingFile&) = delete;
    RecordingFile& operator=(const RecordingFile&) = delete;

    // Read, not looked at where it is mapped: the program may have cut the file short.
    Header header() const {
        Header header;
        if (pread(file_, &header, sizeof header, 0) != sizeof header) {
            throw Failure(quote_name(name_) + ": the program, or somebody else, has cut it short");
        }
        return header;
    }

    // From now on it stays, and the older one of its name goes.
    void stay() {
        stays_ = true;
        if (!older_.empty()) unlink(older_.c_str());
    }

    // Without the room that was not needed. Nobody may have it mapped any more.
    void trim(const Header& header) const {
        const std::uint64_t end = header.full_at != 0 ? header.full_at : header.next;
        if (ftruncate(file_, static_cast<off_t>(std::min(end, size_))) != 0) fail(quote_name(name_));
    }

private:
    static std::string names() {
        std::string all;
#define VESK_NAME(Message) all.append(&#Message[sizeof "vesk_" - 1]).push_back('\0');
        VESK_RECORDED_TYPES(VESK_NAME)
#undef VESK_NAME
        return all;
    }

    void map() {
        void* const mapped = mmap(nullptr, size_, PROT_READ | PROT_WRITE, MAP_SHARED, file_, 0);
        if (mapped == MAP_FAILED) return;
        header_ = static_cast<Header*>(mapped);
        const std::string all = names();
        std::memcpy(header_ + 1, all.data(), all.size());
        std::memcpy(header_->magic, recording::magic, sizeof recording::magic);
        header_->byte_order = recording::byte_order;
        header_->type_count = static_cast<std::uint32_t>(std::count(all.begin(), all.end(), '\0'));
        header_->records_at = sizeof(Header) + recording::rounded_up(all.size());
        header_->size = size_;
        header_->began_at = nanoseconds(CLOCK_REALTIME);
        header_->began_monotonic = nanoseconds(CLOCK_MONOTONIC);
        header_->next = header_->records_at;
    }

    std::string name_;
    std::string older_;  // another name of the older one; empty if there is none
    bool stays_ = false;
    std::uint64_t size_;
    int file_ = -1;
    Header* header_ = nullptr;
};

// The preloaded library, where it stands in a build folder or, by the way from one to the other, installed.
std::string find_recorder() {
    char own[PATH_MAX];
    const ssize_t length = readlink("/proc/self/exe", own, sizeof own);
    if (length < 0 || length == sizeof own) fail("/proc/self/exe");
    std::string folder(own, static_cast<std::size_t>(length));
    folder.resize(folder.rfind('/') + 1);
    for (const char* way : {"recorder/libvesk_recorder.so", VESK_RECORDER_FROM_PROGRAM}) {
        char whole[PATH_MAX];
        if (realpath((folder + way).c_str(), whole) == nullptr) continue;
        // The loader takes both for the end of a name.
        if (std::strpbrk(whole, ": ") == nullptr) return whole;
        throw Failure(quote_name(whole) + ": cannot be preloaded from a folder with a colon or blank in its name");
    }
    throw Failure("libvesk_recorder.so is missing: it stands neither in " + quote_name(folder + "recorder") +
                  " nor at " + quote_name(folder + VESK_RECORDER_FROM_PROGRAM));
}

std::string whole_path(const std::string& name) {
    char whole[PATH_MAX];
    if (realpath(name.c_str(), whole) == nullptr) fail(quote_name(name));
    return whole;
}

bool is_same_file(const std::string& one, const std::string& other) {
    struct stat left {};
    struct stat right {};
    return stat(one.c_str(), &left) == 0 && stat(other.c_str(), &right) == 0 && left.st_dev == right.st_dev &&
           left.st_ino == right.st_ino;
}

// ---- The program ----

volatile std::sig_atomic_t program = 0;

// What the terminal sends goes to the program by itself; what somebody sends to vesk is meant for it.
void hand_on(int signal, siginfo_t* from, void*) {
    if (from->si_code <= 0 && program > 0) kill(static_cast<pid_t>(program), signal);
}

constexpr int handed_on[] = {SIGINT, SIGQUIT, SIGTERM, SIGHUP, SIGUSR1, SIGUSR2, SIGALRM, SIGWINCH, SIGCONT};

// Becomes the program. Returns if that cannot be.
void become(const std::string& path, const std::vector<std::string>& words, const std::string& recorder,
            const std::string& out) {
    std::vector<char*> arguments;
    arguments.reserve(words.size() + 1);
    for (const std::string& word : words) arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    const char* const preloaded = std::getenv("LD_PRELOAD");  // whoever is there first may have to be the first
    const bool is_first = preloaded == nullptr || *preloaded == '\0';
    setenv("LD_PRELOAD", ((is_first ? "" : std::string(preloaded) + ":") + recorder).c_str(), 1);
    setenv(recording::environment_variable, out.c_str(), 1);
    std::signal(SIGPIPE, SIG_DFL);
    execv(path.c_str(), arguments.data());
}

int run(const std::string& path, const Request& request, const std::string& recorder, RecordingFile& file) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) fail("a pipe");
    prctl(PR_SET_CHILD_SUBREAPER, 1);  // so that vesk knows of processes that the program leaves behind
    const std::string out = whole_path(request.recording);
    sigset_t blocked;
    sigset_t before;
    sigemptyset(&blocked);
    for (const int signal : handed_on) sigaddset(&blocked, signal);
    sigprocmask(SIG_BLOCK, &blocked, &before);
    const pid_t child = fork();
    if (child == 0) {
        sigprocmask(SIG_SETMASK, &before, nullptr);
        become(path, request.program, recorder, out);
        const int why = errno;
        _exit(write(ends[1], &why, sizeof why) == sizeof why ? 127 : 126);
    }
    if (child < 0) fail("a process");
    program = child;
    struct sigaction action {};
    action.sa_sigaction = hand_on;
    action.sa_flags = SA_SIGINFO | SA_RESTART;
    for (const int signal : handed_on) sigaction(signal, &action, nullptr);
    sigprocmask(SIG_SETMASK, &before, nullptr);

    close(ends[1]);
    int why = 0;
    const bool started = read(ends[0], &why, sizeof why) != sizeof why;
    close(ends[0]);
    if (started) file.stay();
    int status = 0;
    for (pid_t ended = 0; ended != child;) {
        ended = waitpid(-1, &status, 0);
        if (ended < 0 && errno != EINTR) fail("waiting for the program");
    }
    program = 0;
    if (!started) throw Failure(quote_name(request.program.front()) + " cannot be started: " + because(why));
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

// Whether processes go on that the program has started.
bool leaves_processes() {
    pid_t ended = 0;
    do {
        ended = waitpid(-1, nullptr, WNOHANG);
    } while (ended > 0);
    return ended == 0;
}

void report(const std::string& line) { std::cerr << "vesk: " << line << "\n"; }

}  // namespace

int record_program(const Request& request) {
    const std::uint64_t limit = read_size(request.limit) / 8 * 8;
    if (limit < 4096) throw Failure("--limit is at least 4K", status_usage);
    const std::string path = find_program(request.program.front());
    refuse_unrecordable(path);
    if (is_same_file(request.recording, path)) {
        throw Failure(quote_name(request.recording) + " is the program: OUT is another file", status_usage);
    }
    const std::string recorder = find_recorder();
    RecordingFile file(request.recording, limit);
    const int status = run(path, request, recorder, file);

    const Header header = file.header();
    const std::string name = quote_name(request.recording);
    if (leaves_processes()) {
        report(name + ": processes that the program has left behind are recorded as long as they run");
    } else {
        file.trim(header);
        if (header.processes == 0) {
            report(name + ": holds no call: no loader has preloaded the recorder into the program");
        } else if (header.next == header.records_at) {
            report(name + ": holds no call: the program made none, or has the library linked statically");
        }
    }
    if (header.not_noted != 0) {
        report(name + ": the limit was reached; " + std::to_string(header.not_noted) +
               " calls were not noted (--limit)");
    }
    return status;
}

}  // namespace vesk::tool
