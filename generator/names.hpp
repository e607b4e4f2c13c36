// Names in C for what a schema names. The rule, which every generated header states:
//
//   - Underscores at the beginning are left out, and several in a row become one: C and C++ keep such names for
//     themselves.
//   - A name that is taken gets an underscore at its end. Taken are the words of C and C++, macros of their libraries,
//     for a member every name in capitals alone (which are for macros) and the structure's own `present`, and what came
//     before in the same scope.
//   - What is then still taken is refused.
#pragma once

#include <set>
#include <string>

namespace vesk::generator {

std::string upper_case(const std::string& text);

// Without underscores at the beginning, and one for several in a row.
std::string fold_underscores(const std::string& name);

// Of a package, a file or the names of messages within each other: a C identifier, without underscores at its ends.
std::string identifier_of(const std::string& name);

bool is_identifier(const std::string& name);

// A prefix with which names would become the runtime's own or macros of the standard headers: "vesk", "dbl".
bool is_reserved_prefix(const std::string& prefix);

// Names that stand beside each other.
class Scope {
public:
    // Puts a name in; false if it is taken.
    bool add(const std::string& name);
    bool contains(const std::string& name) const { return names_.contains(name); }

    // Puts in the name that the rule makes of `wanted`, and returns it; empty if that is taken, too, or if nothing is
    // left.
    std::string add_by_rule(const std::string& wanted);

private:
    std::set<std::string> names_;
};

// The names of a structure's members, which must not be those of the types around it, either.
class MemberScope {
public:
    explicit MemberScope(const Scope& types) : types_(types) { names_.insert("present"); }
    std::string add_by_rule(const std::string& wanted);

private:
    const Scope& types_;
    std::set<std::string> names_;
};

}  // namespace vesk::generator
