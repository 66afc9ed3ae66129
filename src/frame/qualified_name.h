// The name of a function out of its signature.
#pragma once

#include <string>
#include <string_view>

namespace kestrine {

// The qualified name in a function's signature, without this namespace, unnamed namespaces and
// template arguments: "int kestrine::UrlStat::run(const std::string&)" gives "UrlStat::run". A
// lambda has the name of the function around it.
[[nodiscard]] std::string qualifiedName(std::string_view signature);

} // namespace kestrine
