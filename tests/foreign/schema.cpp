#include "tests/foreign/schema.hpp"

#include <dlfcn.h>
#include <google/protobuf/compiler/importer.h>
#include <google/protobuf/dynamic_message.h>

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <set>

namespace vesk::test {
namespace {

using google::protobuf::Descriptor;
using google::protobuf::FileDescriptor;

[[noreturn]] void give_up(const std::string& why) {
    std::cerr << why << '\n';
    std::exit(2);
}

void add_with_nested(const Descriptor* message, std::vector<const Descriptor*>* all) {
    all->push_back(message);
    for (int i = 0; i < message->nested_type_count(); ++i) add_with_nested(message->nested_type(i), all);
}

// addressbook.v2.Outer.Inner as addressbook_v2_Outer_Inner. Of names with odd underscores the generator makes others.
std::string c_name(const Descriptor& message) {
    std::string name = message.full_name();
    std::replace(name.begin(), name.end(), '.', '_');
    return name;
}

std::set<void*> blocks;  // in use

}  // namespace

struct ForeignSchema::Files {
    class Errors : public google::protobuf::compiler::MultiFileErrorCollector {
    public:
        void AddError(const std::string& file, int line, int, const std::string& message) override {
            give_up(file + ":" + std::to_string(line + 1) + ": " + message);
        }
    };

    google::protobuf::compiler::DiskSourceTree folders;
    Errors errors;
    google::protobuf::compiler::Importer importer{&folders, &errors};
    google::protobuf::DynamicMessageFactory factory;
};

namespace {
google::protobuf::DynamicMessageFactory* the_factory = nullptr;
}

std::unique_ptr<google::protobuf::Message> ForeignType::new_message() const {
    return std::unique_ptr<google::protobuf::Message>(the_factory->GetPrototype(descriptor)->New());
}

ForeignSchema::ForeignSchema(const std::string& library, const std::vector<std::string>& folders)
    : files_(std::make_unique<Files>()), library_(dlopen(library.c_str(), RTLD_NOW | RTLD_LOCAL)) {
    if (library_ == nullptr) give_up(dlerror());
    the_factory = &files_->factory;
    for (const std::string& folder : folders) files_->folders.MapPath("", folder);
    const auto all_types = reinterpret_cast<const vesk_type* (*)(std::uint32_t*)>(symbol("vesk_schema_all_types"));
    std::uint32_t count = 0;
    const vesk_type* type = all_types(&count);
    for (; type != nullptr; type = vesk_type_next(type)) add_type(type);
    if (count == 0 || types_.size() != count) give_up(library + ": the number of types is not that of the table");
}

ForeignSchema::~ForeignSchema() = default;

void* ForeignSchema::symbol(const std::string& name) const {
    void* const address = dlsym(library_, name.c_str());
    if (address == nullptr) give_up(dlerror());
    return address;
}

void ForeignSchema::add_type(const vesk_type* facts) {
    const FileDescriptor* file = files_->importer.Import(std::string(vesk_type_unit(facts)) + ".proto");
    std::vector<const Descriptor*> messages;
    for (int i = 0; i < file->message_type_count(); ++i) add_with_nested(file->message_type(i), &messages);
    const std::string name = vesk_type_name(facts);
    const auto found = std::find_if(messages.begin(), messages.end(),
                                    [&](const Descriptor* message) { return c_name(*message) == name; });
    if (found == messages.end()) give_up(name + ": there is no such message in " + file->name());
    ForeignType type{};
    type.facts = facts;
    type.descriptor = *found;
    type.encode = reinterpret_cast<decltype(type.encode)>(symbol(name + "_encode_ext"));
    type.decode = reinterpret_cast<decltype(type.decode)>(symbol(name + "_decode_ext"));
    type.duplicate = reinterpret_cast<decltype(type.duplicate)>(symbol(name + "_duplicate"));
    type.free = reinterpret_cast<decltype(type.free)>(symbol(name + "_free_ext"));
    types_.push_back(type);
}

const ForeignType& ForeignSchema::type_of(const Descriptor* descriptor) const {
    for (const ForeignType& type : types_) {
        if (type.descriptor == descriptor) return type;
    }
    give_up(descriptor->full_name() + " is not in the library");
}

const ForeignType& ForeignSchema::named(const std::string& name) const {
    for (const ForeignType& type : types_) {
        if (type.name() == name) return type;
    }
    give_up(name + " is not in the library");
}

// ---- Structures ----------------------------------------------------------------------------------------------------

std::size_t blocks_in_use() { return blocks.size(); }

void take_lost_blocks() {
    for (void* const block : blocks) std::free(block);
    blocks.clear();
}

void* give_block(std::uint64_t size, void*) {
    void* const block = std::malloc(size != 0 ? size : 1);
    blocks.insert(block);
    return block;
}

void take_block(void* block, void*) {
    if (blocks.erase(block) != 1) give_up("a block is given back that was not given");
    std::free(block);
}

Structure::Structure(const ForeignType& type) : type_(type), memory_(new char[type.facts->structure_size]()) {}

Structure::~Structure() { type_.free(get(), take_block, nullptr, flags_); }

Bytes Structure::encode() const {
    Bytes bytes(type_.encode(get(), nullptr, 0, nullptr, nullptr, 0));
    const std::uint64_t written = type_.encode(get(), bytes.data(), bytes.size(), nullptr, nullptr, 0);
    if (written != bytes.size()) give_up(type_.name() + ": what is written is not as long as what is measured");
    return bytes;
}

std::int32_t Structure::decode(const Bytes& input, std::uint32_t flags) {
    type_.free(get(), take_block, nullptr, flags_);
    std::memset(get(), 0xA5, type_.facts->structure_size);  // raw storage
    flags_ = flags;
    return type_.decode(get(), input.data(), input.size(), give_block, nullptr, flags);
}

std::int32_t Structure::duplicate(const Structure& source) {
    type_.free(get(), take_block, nullptr, flags_);
    std::memset(get(), 0, type_.facts->structure_size);
    flags_ = 0;
    return type_.duplicate(get(), source.get(), give_block, nullptr);
}

bool has_bit(const vesk_type* type, const vesk_field* field, const void* structure) {
    const auto byte = load<std::uint8_t>(structure, type->presence_offset + field->presence_bit / 8);
    return (byte >> field->presence_bit % 8 & 1) != 0;
}

void set_bit(const vesk_type* type, const vesk_field* field, void* structure) {
    const std::uint32_t at = type->presence_offset + field->presence_bit / 8;
    store<std::uint8_t>(structure, at, load<std::uint8_t>(structure, at) | 1u << field->presence_bit % 8);
}

std::size_t size_of_kind(unsigned kind) {
    switch (kind) {
        case VESK_KIND_BOOL: return 1;
        case VESK_KIND_UINT32:
        case VESK_KIND_SINT32:
        case VESK_KIND_INT32:
        case VESK_KIND_FIXED32:
        case VESK_KIND_SFIXED32:
        case VESK_KIND_FLOAT:
        case VESK_KIND_ENUM: return 4;
        case VESK_KIND_STRING: return sizeof(char*);
        case VESK_KIND_BYTES: return sizeof(vesk_bytes);
        default: return 8;
    }
}

}  // namespace vesk::test
