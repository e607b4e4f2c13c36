// The preloaded library of `vesk record`: stands in front of the 380 functions, notes each call in the file that the
// environment names, and hands it on. The library's calls to itself do not come through here: it binds them when it is
// linked. What a callback calls does, and is noted as a call of its own.
//
// No locks, and no memory but the file's: calls come from threads, signal handlers and children after fork.
#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>
#include <vesk/client_service.h>

#include <cerrno>
#include <cstdlib>

#include "recorded_types.hpp"
#include "tools/vesk/recording.hpp"

namespace {

using namespace vesk::recording;

enum Place : std::uint16_t {
#define VESK_PLACE(Message) place_of_##Message,
    VESK_RECORDED_TYPES(VESK_PLACE) type_count
#undef VESK_PLACE
};

const char* const names[] = {
#define VESK_NAME(Message) #Message,
    VESK_RECORDED_TYPES(VESK_NAME)
#undef VESK_NAME
};

// ---- The functions that calls are handed on to ----

void* functions[type_count][operation_count];

void* look_up(Place place, Operation operation) {
    char name[128];
    char* end = stpcpy(name, names[place]);
    stpcpy(end, operation_suffixes[static_cast<unsigned>(operation)]);
    if (void* const function = dlsym(RTLD_NEXT, name)) return function;
    // The library came with a plug-in that keeps its names to itself. It then stays loaded, as its address does here.
    void* const library = dlopen(VESK_INVENTORY_SONAME, RTLD_LAZY | RTLD_NOLOAD);
    return library != nullptr ? dlsym(library, name) : nullptr;
}

[[noreturn]] void nobody_has(Place place) {
    const char* const pieces[] = {"libvesk_recorder: no library has the functions of ", names[place], "\n"};
    for (const char* piece : pieces) {
        if (write(STDERR_FILENO, piece, std::strlen(piece)) < 0) break;
    }
    std::abort();
}

template <class Function>
Function next(Place place, Operation operation) {
    void** const slot = &functions[place][static_cast<unsigned>(operation)];
    void* function = __atomic_load_n(slot, __ATOMIC_RELAXED);
    if (function == nullptr) {
        const int kept = errno;
        function = look_up(place, operation);
        if (function == nullptr) nobody_has(place);
        __atomic_store_n(slot, function, __ATOMIC_RELAXED);
        errno = kept;
    }
    return reinterpret_cast<Function>(function);
}

using Encode = std::uint64_t (*)(const void*, void*, std::uint64_t, vesk_segment*, std::uint32_t*, std::uint32_t);
using Decode = std::int32_t (*)(void*, const void*, std::uint64_t, vesk_alloc, void*, std::uint32_t);
using Duplicate = std::int32_t (*)(void*, const void*, vesk_alloc, void*);
using Free = void (*)(void*, vesk_release, void*, std::uint32_t);

// ---- The file ----

Header* header;      // null: nothing is recorded
std::uint64_t size;  // the header's: the mapping's, whatever happens to the header

// Who calls. A thread's number costs a system call, so it is kept; a child has the kept number of its parent's thread.
std::uint32_t process;
std::uint32_t generation = 1;
struct Thread {
    std::uint32_t number;
    std::uint32_t generation;
};
__attribute__((tls_model("initial-exec"))) __thread Thread thread;

void enter_process() {
    process = static_cast<std::uint32_t>(getpid());
    ++generation;
    __atomic_fetch_add(&header->processes, 1, __ATOMIC_RELAXED);
}

std::uint32_t thread_number() {
    if (thread.generation != generation) thread = {static_cast<std::uint32_t>(syscall(SYS_gettid)), generation};
    return thread.number;
}

Header* map(int file) {
    struct stat status;
    Header found;
    if (fstat(file, &status) != 0 || !S_ISREG(status.st_mode) || status.st_uid != geteuid()) return nullptr;
    if (pread(file, &found, sizeof found, 0) != static_cast<ssize_t>(sizeof found)) return nullptr;
    if (std::memcmp(found.magic, magic, sizeof magic) != 0 || found.byte_order != byte_order) return nullptr;
    if (found.type_count != type_count || found.size != static_cast<std::uint64_t>(status.st_size)) return nullptr;
    void* const mapped =
        mmap(nullptr, static_cast<std::size_t>(found.size), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    if (mapped == MAP_FAILED) return nullptr;
    size = found.size;
    return static_cast<Header*>(mapped);
}

__attribute__((constructor)) void open_recording() {
    const char* const path = std::getenv(environment_variable);
    const int file = path != nullptr ? open(path, O_RDWR | O_CLOEXEC | O_NOFOLLOW) : -1;
    if (file >= 0) {
        header = map(file);
        close(file);
    }
    if (header == nullptr) return;
    enter_process();
    pthread_atfork(nullptr, nullptr, enter_process);
    // All at once, since looking one up takes stack and time that the caller of a function does not expect.
    if (look_up(Place{}, Operation{}) == nullptr) return;
    for (unsigned place = 0; place < type_count; ++place) {
        for (unsigned operation = 0; operation < operation_count; ++operation) {
            functions[place][operation] = look_up(static_cast<Place>(place), static_cast<Operation>(operation));
        }
    }
}

// Whether a call is to be noted. One that is not, since the limit was reached, is counted.
bool is_noted() {
    if (header == nullptr) return false;
    if (__atomic_load_n(&header->next, __ATOMIC_RELAXED) <= size) return true;
    __atomic_fetch_add(&header->not_noted, 1, __ATOMIC_RELAXED);
    return false;
}

// Sets room aside for a record; null if there is none, which ends recording.
Record* reserve(std::uint64_t length) {
    const std::uint64_t wanted = length < size ? sizeof(Record) + rounded_up(length) : size + 1;
    const std::uint64_t at = __atomic_fetch_add(&header->next, wanted, __ATOMIC_RELAXED);
    if (at <= size && wanted <= size - at) {
        return reinterpret_cast<Record*>(reinterpret_cast<unsigned char*>(header) + at);
    }
    if (at <= size) __atomic_store_n(&header->full_at, at, __ATOMIC_RELAXED);  // true of one call alone
    __atomic_fetch_add(&header->not_noted, 1, __ATOMIC_RELAXED);
    return nullptr;
}

unsigned char* content_of(Record* record) { return reinterpret_cast<unsigned char*>(record + 1); }

std::uint64_t now() {
    timespec time;
    clock_gettime(CLOCK_MONOTONIC, &time);
    return static_cast<std::uint64_t>(time.tv_sec) * 1000000000 + static_cast<std::uint64_t>(time.tv_nsec);
}

Call describe(Place place, Operation operation, std::uint32_t flags) {
    Call call{};
    call.mark = record_mark;
    call.type = place;
    call.operation = operation;
    call.flags = flags;
    call.process = process;
    call.thread = thread_number();
    return call;
}

// The content stands there already. The sums come last, so that a record that has them is whole.
void note(Record* record, Call* call, std::uint64_t length) {
    call->length = length;
    call->content_sum = sum_of_content(content_of(record), length);
    if (call->began == 0) call->began = now();
    record->call = *call;
    __atomic_store_n(&record->call_sum, sum_of(*call), __ATOMIC_RELEASE);
}

void note(Record* record, const Outcome& outcome) {
    record->outcome = outcome;
    __atomic_store_n(&record->outcome_sum, sum_of(outcome, record->call_sum), __ATOMIC_RELEASE);
}

// The caller's allocation callback, counted.
struct Counted {
    vesk_alloc alloc;
    void* context;
    std::uint32_t requests;
    std::uint32_t refused;

    static void* ask(std::uint64_t bytes, void* context) {
        Counted& counted = *static_cast<Counted*>(context);
        ++counted.requests;
        void* const block = counted.alloc(bytes, counted.context);
        if (block == nullptr && counted.refused == 0) counted.refused = counted.requests;
        return block;
    }
    vesk_alloc callback() const { return alloc != nullptr ? ask : nullptr; }
    Outcome outcome(std::int64_t result, std::uint64_t began) const {
        return {result, now() - began, requests, refused};
    }
};

// ---- The four operations ----

std::uint64_t encode(Place place, const void* message, void* buffer, std::uint64_t length, vesk_segment* segments,
                     std::uint32_t* segment_count, std::uint32_t flags) {
    const auto function = next<Encode>(place, Operation::encode);
    if (!is_noted()) return function(message, buffer, length, segments, segment_count, flags);
    Call call = describe(place, Operation::encode, flags);
    call.room = length;
    call.began = now();
    const std::uint64_t result = function(message, buffer, length, segments, segment_count, flags);
    const Outcome outcome{static_cast<std::int64_t>(result), now() - call.began, 0, 0};

    const bool whole = buffer != nullptr && result <= length;
    const bool by_reference = (flags & VESK_BYTES_BY_REFERENCE) != 0;
    std::uint64_t content = 0;
    if (whole) content = by_reference ? function(message, nullptr, 0, nullptr, nullptr, 0) : result;
    Record* const record = reserve(content);
    if (record == nullptr) return result;
    if (whole && by_reference) {
        function(message, content_of(record), content, nullptr, nullptr, 0);
    } else if (content != 0) {
        std::memcpy(content_of(record), buffer, static_cast<std::size_t>(content));
    }
    if (whole) call.bits = has_content;
    note(record, &call, content);
    note(record, outcome);
    return result;
}

// The input is noted before the call: one that the program does not survive is worth the most.
std::int32_t decode(Place place, void* message, const void* buffer, std::uint64_t length, vesk_alloc alloc,
                    void* context, std::uint32_t flags) {
    const auto function = next<Decode>(place, Operation::decode);
    Record* const record = is_noted() ? reserve(length) : nullptr;
    if (record == nullptr) return function(message, buffer, length, alloc, context, flags);
    if (length != 0) std::memcpy(content_of(record), buffer, static_cast<std::size_t>(length));
    Call call = describe(place, Operation::decode, flags);
    call.bits = has_content | (alloc == nullptr ? has_no_alloc : 0);
    note(record, &call, length);

    Counted counted{alloc, context, 0, 0};
    const std::int32_t code = function(message, buffer, length, counted.callback(), &counted, flags);
    note(record, counted.outcome(code, call.began));
    return code;
}

std::int32_t duplicate(Place place, void* destination, const void* source, vesk_alloc alloc, void* context) {
    const auto function = next<Duplicate>(place, Operation::duplicate);
    if (!is_noted()) return function(destination, source, alloc, context);
    const auto write_source = next<Encode>(place, Operation::encode);
    const std::uint64_t length = write_source(source, nullptr, 0, nullptr, nullptr, 0);
    Record* const record = reserve(length);
    if (record == nullptr) return function(destination, source, alloc, context);
    write_source(source, content_of(record), length, nullptr, nullptr, 0);
    Call call = describe(place, Operation::duplicate, 0);
    call.bits = has_content | (alloc == nullptr ? has_no_alloc : 0);
    note(record, &call, length);

    Counted counted{alloc, context, 0, 0};
    const std::int32_t code = function(destination, source, counted.callback(), &counted);
    note(record, counted.outcome(code, call.began));
    return code;
}

void free_message(Place place, void* message, vesk_release release, void* context, std::uint32_t flags) {
    const auto function = next<Free>(place, Operation::free);
    Record* const record = is_noted() ? reserve(0) : nullptr;
    if (record == nullptr) return function(message, release, context, flags);
    Call call = describe(place, Operation::free, flags);
    note(record, &call, 0);
    function(message, release, context, flags);
    note(record, Outcome{0, now() - call.began, 0, 0});
}

}  // namespace

#define VESK_RECORD(Message)                                                                                         \
    std::uint64_t Message##_encode_ext(const Message* message, void* buffer, std::uint64_t length,                   \
                                       vesk_segment* segments, std::uint32_t* segment_count, std::uint32_t flags) {  \
        return encode(place_of_##Message, message, buffer, length, segments, segment_count, flags);                  \
    }                                                                                                                \
    std::int32_t Message##_decode_ext(Message* message, const void* buffer, std::uint64_t length, vesk_alloc alloc,  \
                                      void* context, std::uint32_t flags) {                                          \
        return decode(place_of_##Message, message, buffer, length, alloc, context, flags);                           \
    }                                                                                                                \
    std::int32_t Message##_duplicate(Message* destination, const Message* source, vesk_alloc alloc, void* context) { \
        return duplicate(place_of_##Message, destination, source, alloc, context);                                   \
    }                                                                                                                \
    void Message##_free_ext(Message* message, vesk_release release, void* context, std::uint32_t flags) {            \
        free_message(place_of_##Message, message, release, context, flags);                                          \
    }
VESK_RECORDED_TYPES(VESK_RECORD)
