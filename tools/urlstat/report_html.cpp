#include "report_html.h"

#include "platform/platform.h"
#include "report_page.h"
#include "report_words.h"
#include "tree/names.h"
#include "version.h"

#include <stdexcept>

namespace kestrine::viewer {

namespace {

std::string today() {
    const LocalTime time = platform().localTime();
    return dateWords(names::dateText(time.year * 10000 + time.month * 100 + time.day));
}

} // namespace

Data pageData() {
    return Object{
        {"style", std::string(texts::g_style)}, {"made", today()}, {"version", g_version}};
}

std::string renderPage(std::string_view pageTemplate, const Data& data) {
    kainjow::mustache::mustache page{std::string(pageTemplate)};
    if (!page.is_valid()) {
        throw std::logic_error(page.error_message());
    }
    return page.render(data);
}

} // namespace kestrine::viewer
