// This library, and any other with the same exported functions. All are called in the same way, through the addresses
// of the exported functions.
#include <dlfcn.h>

#include <algorithm>
#include <cstdlib>
#include <map>

#include "bench/contestant.hpp"

namespace vesk::bench {
namespace {

struct Functions {
    std::uint64_t (*encode)(const void* message, void* buffer, std::uint64_t length, vesk_segment* segments,
                            std::uint32_t* segment_count, std::uint32_t flags);
    std::int32_t (*decode)(void* message, const void* buffer, std::uint64_t length, vesk_alloc alloc, void* context,
                           std::uint32_t flags);
    std::int32_t (*duplicate)(void* destination, const void* source, vesk_alloc alloc, void* context);
    void (*free)(void* message, vesk_release release, void* context, std::uint32_t flags);
};

template <class Function>
void find(void* library, const std::string& name, Function* function) {
    *function = reinterpret_cast<Function>(dlsym(library, name.c_str()));
    if (*function == nullptr) throw std::runtime_error("a library without " + name);
}

Functions functions_of(void* library, const TypeInfo& type) {
    Functions functions{};
    find(library, "vesk_" + type.name + "_encode_ext", &functions.encode);
    find(library, "vesk_" + type.name + "_decode_ext", &functions.decode);
    find(library, "vesk_" + type.name + "_duplicate", &functions.duplicate);
    find(library, "vesk_" + type.name + "_free_ext", &functions.free);
    return functions;
}

void* from_heap(std::uint64_t size, void*) { return std::malloc(size); }
void to_heap(void* block, void*) { std::free(block); }
void* from_arena(std::uint64_t size, void* arena) { return static_cast<BumpArena*>(arena)->allocate(size); }

class VeskContestant : public Contestant {
public:
    // Works on the workload's messages, or on its own if these are given.
    VeskContestant(void* library, const Workload& workload, std::vector<Message> own_messages = {})
        : functions_(functions_of(library, *workload.type)),
          workload_(workload),
          own_messages_(std::move(own_messages)),
          turn_(workload.messages.size()),
          arena_(arena_capacity(workload)),
          buffer_(workload.longest_encoding),
          storage_(*workload.type) {
        const auto& messages = own_messages_.empty() ? workload.messages : own_messages_;
        for (const Message& message : messages) sources_.push_back(message.get());
    }

    bool can(Operation) const override { return true; }

    bool run(Operation operation, std::size_t calls) override {
        switch (operation) {
            case Operation::measure: return repeat(calls, &turn_, [&](std::size_t i) { return measure(i) != 0; });
            case Operation::encode:
                return repeat(calls, &turn_, [&](std::size_t i) { return encode(i, buffer_.size()) != 0; });
            case Operation::measure_and_encode:
                return repeat(calls, &turn_, [&](std::size_t i) {
                    const std::uint64_t length = measure(i);
                    return encode(i, length) == length;
                });
            case Operation::decode: return repeat(calls, &turn_, [&](std::size_t i) { return decode_in_arena(i); });
            case Operation::duplicate: return repeat(calls, &turn_, [&](std::size_t i) { return duplicate(i); });
            case Operation::decode_and_free:
                return repeat(calls, &turn_, [&](std::size_t i) {
                    const std::int32_t code = decode(i, from_heap, nullptr);
                    functions_.free(storage_.get(), to_heap, nullptr, workload_.flags);
                    return code == VESK_OK;
                });
        }
        return false;
    }

    Bytes reencoded(std::size_t index) override {
        if (!decode_in_arena(index)) return {};
        Bytes bytes(functions_.encode(storage_.get(), nullptr, 0, nullptr, nullptr, 0));
        functions_.encode(storage_.get(), bytes.data(), bytes.size(), nullptr, nullptr, 0);
        return bytes;
    }

private:
    std::uint64_t measure(std::size_t index) {
        return functions_.encode(sources_[index], nullptr, 0, nullptr, nullptr, workload_.flags);
    }

    std::uint64_t encode(std::size_t index, std::uint64_t length) {
        const void* message = sources_[index];
        if (workload_.flags == 0) return functions_.encode(message, buffer_.data(), length, nullptr, nullptr, 0);
        vesk_segment segments[8];
        std::uint32_t count = 8;
        return functions_.encode(message, buffer_.data(), length, segments, &count, workload_.flags);
    }

    std::int32_t decode(std::size_t index, vesk_alloc alloc, void* context) {
        const Bytes& input = workload_.encoded[index];
        return functions_.decode(storage_.get(), input.data(), input.size(), alloc, context, workload_.flags);
    }

    bool decode_in_arena(std::size_t index) {
        arena_.reset();
        return decode(index, from_arena, &arena_) == VESK_OK;
    }

    bool duplicate(std::size_t index) {
        arena_.reset();
        return functions_.duplicate(storage_.get(), sources_[index], from_arena, &arena_) == VESK_OK;
    }

    Functions functions_;
    const Workload& workload_;
    std::vector<Message> own_messages_;
    std::vector<const void*> sources_;
    Turn turn_;
    BumpArena arena_;
    Bytes buffer_;
    test::Storage storage_;
};

void* from_message(std::uint64_t size, void* message) { return static_cast<Message*>(message)->new_block(size); }

// The workload's messages as the library reads them: only its own identifier knows what that one's members mean.
std::vector<Message> decode_all(void* library, const Workload& workload) {
    std::vector<Message> messages;
    for (const Bytes& input : workload.encoded) {
        Message& message = messages.emplace_back(*workload.type);
        const auto decode = functions_of(library, *workload.type).decode;
        if (decode(message.get(), input.data(), input.size(), from_message, &message, 0) != VESK_OK) {
            throw std::runtime_error(workload.name + ": cannot be decoded with another identifier");
        }
    }
    return messages;
}

void* load(Lmid_t space, const std::string& file) {
    void* library = dlmopen(space, file.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) throw std::runtime_error(dlerror());
    return library;
}

// In a namespace of its own, so that neither library's calls end in the other.
void* load_apart(const std::string& file) {
    static std::map<std::string, void*> loaded;
    void*& library = loaded[file];
    if (library == nullptr) library = load(LM_ID_NEWLM, file);
    return library;
}

// The library finds an identifier of the right name in its namespace and looks for no other.
void* load_with_free_identifier() {
    void* identifier = load_apart(VESK_FREE_IDENTIFIER);
    Lmid_t space{};
    Dl_info linked{};
    void* linked_function = dlsym(RTLD_DEFAULT, "vesk_req_inv_data_encode_ext");
    if (dlinfo(identifier, RTLD_DI_LMID, &space) != 0 || dladdr(linked_function, &linked) == 0) {
        throw std::runtime_error("the libraries' places are not known");
    }
    static void* const library = load(space, linked.dli_fname);
    const char* called = "vesk_drin_eid_st_encode_ext";
    if (dlsym(library, called) != dlsym(identifier, called)) throw std::runtime_error("the stand-in was loaded again");
    return library;
}

bool has_identifier(const TypeInfo& type) {
    return type.name == "drin_eid_st" ||
           std::any_of(type.fields.begin(), type.fields.end(),
                       [](const FieldInfo& field) { return field.nested != nullptr && has_identifier(*field.nested); });
}

}  // namespace

Entry make_linked_library(const Workload& workload) {
    return {"vesk", std::make_unique<VeskContestant>(RTLD_DEFAULT, workload)};
}

Entry make_loaded_library(const std::string& name, const std::string& file, const Workload& workload) {
    return {name, std::make_unique<VeskContestant>(load_apart(file), workload)};
}

void add_library_with_free_identifier(const Workload& workload, std::vector<Entry>* entries) {
    if (!has_identifier(*workload.type) || workload.flags != 0) return;
    void* library = load_with_free_identifier();
    entries->push_back(
        {"free identifier", std::make_unique<VeskContestant>(library, workload, decode_all(library, workload))});
}

}  // namespace vesk::bench
