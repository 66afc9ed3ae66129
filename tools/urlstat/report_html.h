// How the pages are made of their templates.
#pragma once

#include <kainjow/mustache.hpp>

#include <string_view>

namespace kestrine::viewer {

// What a template is filled with. All of it is escaped, but style and script.
using Data = kainjow::mustache::data;
using Object = kainjow::mustache::object;

template <typename Items, typename ToData>
[[nodiscard]] Data listOf(const Items& items, ToData&& toData) {
    Data all(Data::type::list);
    for (const auto& item : items) {
        all << toData(item);
    }
    return all;
}

// What every page has.
[[nodiscard]] Data pageData();
[[nodiscard]] std::string renderPage(std::string_view pageTemplate, const Data& data);

} // namespace kestrine::viewer
