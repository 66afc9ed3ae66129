// The name of a function out of its signature, as the compilers spell it:
//   GCC    "virtual int kestrine::{anonymous}::A<T>::run(int) const [with T = int]"
//   Clang  "int kestrine::(anonymous namespace)::A<int>::run(int) const [T = int]"
// Lambdas follow the parameters of the function around them, so that the first parameter list ends
// the name that is wanted.
#include "frame/qualified_name.h"

#include <algorithm>

namespace kestrine {

namespace {

constexpr std::string_view g_operator = "operator";
constexpr std::string_view g_dropped[] = {"kestrine::", "{anonymous}::", "(anonymous namespace)::"};

bool isIdentifier(char c) {
    return c == '_' || (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

bool operatorAt(std::string_view text, size_t at) {
    const size_t after = at + g_operator.size();
    return text.substr(at, g_operator.size()) == g_operator &&
           (at == 0 || !isIdentifier(text[at - 1])) &&
           (after >= text.size() || !isIdentifier(text[after]));
}

// Length of a dropped namespace that stands at the position, 0 for none.
size_t droppedAt(std::string_view text, size_t at) {
    for (const std::string_view dropped : g_dropped) {
        if (text.substr(at, dropped.size()) == dropped) {
            return dropped.size();
        }
    }
    return 0;
}

// Where the parameters of an operator begin; its own symbol may be "()".
size_t operatorParameters(std::string_view text, size_t at) {
    size_t after = at + g_operator.size();
    if (text.substr(after, 2) == "()") {
        after += 2;
    }
    return std::min(text.find('(', after), text.size());
}

} // namespace

std::string qualifiedName(std::string_view signature) {
    std::string name;
    int depth = 0; // of brackets; what stands inside them is no part of the name
    for (size_t i = 0; i < signature.size(); ++i) {
        const char c = signature[i];
        if (const size_t dropped = droppedAt(signature, i); dropped != 0) {
            i += dropped - 1;
        } else if (depth == 0 && operatorAt(signature, i)) {
            return name.append(signature.substr(i, operatorParameters(signature, i) - i));
        } else if (c == '(' && depth == 0 && !name.empty()) {
            return name;
        } else if (c == '<' || c == '(') {
            ++depth;
        } else if (c == '>' || c == ')') {
            --depth;
        } else if (depth == 0 && (c == ' ' || c == '*' || c == '&')) {
            name.clear(); // what came before was the return type
        } else if (depth == 0) {
            name += c;
        }
    }
    return name;
}

} // namespace kestrine
