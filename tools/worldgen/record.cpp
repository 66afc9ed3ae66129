#include "worldgen/record.h"

#include <array>
#include <stdexcept>

#include <zlib.h>

#include "worldgen/bytes.h"

namespace worldgen {

namespace {

constexpr std::string_view xmlStart = "<?xml version=\"1.0\" encoding=\"utf-8\"?><_r>";

std::string fieldsBefore() {
    return listField("method", "GET") + listField("hostname", "pc-17");
}

std::string fieldsAfter() {
    return listField("url", "/index.html") + listField("agent", "Mozilla/5.0");
}

Record withContent(std::string content, std::uint32_t type,
                   std::optional<std::uint32_t> contentLength = std::nullopt) {
    PayloadFields fields;
    fields.content = std::move(content);
    fields.type = type;
    fields.contentLength = contentLength;
    Record record;
    record.payload = makePayload(fields);
    return record;
}

Record shortened(std::string_view host, std::uint32_t type, std::size_t bytes) {
    Record record;
    record.payload = visitPayload(host, type).substr(0, bytes);
    return record;
}

Record withWord(std::string_view host, std::uint32_t type, std::size_t offset,
                std::uint32_t value) {
    Record record;
    record.payload = visitPayload(host, type);
    storeLe32(record.payload.data() + offset, value);
    return record;
}

std::string lengthAlone(std::uint32_t length, std::string_view text) {
    std::string field;
    appendLe32(field, length);
    field += text;
    return field;
}

Record skippedList(SkipKind kind, std::string_view host, std::uint32_t type) {
    std::string hostField = listField("host", host);
    switch (kind) {
    case SkipKind::NoHostList:
        return withContent(fieldsBefore() + fieldsAfter(), type);
    case SkipKind::EmptyHostList:
        return withContent(fieldsBefore() + listField("host", "") + fieldsAfter(), type);
    case SkipKind::BareHostList:
        return withContent(fieldsBefore() + lengthAlone(5, "host:") + fieldsAfter(), type);
    case SkipKind::CapitalHostList:
        return withContent(fieldsBefore() + listField("Host", host) + fieldsAfter(), type);
    case SkipKind::FieldPastEndList:
        return withContent(lengthAlone(5000, "method:GET") + hostField, type);
    case SkipKind::HugeFieldList:
        return withContent(fieldsBefore() + lengthAlone(0xFFFFFFF0u, "a:b") + hostField, type);
    case SkipKind::ZeroContentLength:
        return withContent(hostField + fieldsAfter(), type, 0);
    case SkipKind::HostBeyondContent:
        return withContent(fieldsBefore() + hostField, type,
                           static_cast<std::uint32_t>(fieldsBefore().size()));
    default:
        throw std::invalid_argument("no such kind of skipped record");
    }
}

Record skippedXml(SkipKind kind, std::string_view host, std::uint32_t type) {
    std::string content = std::string(xmlStart) + "<_f n=\"method\">GET</_f>";
    switch (kind) {
    case SkipKind::NoHostXml:
        content.append("<_f n=\"hostname\">").append(host).append("</_f></_r>");
        break;
    case SkipKind::EmptyHostXml:
        content += "<_f n=\"host\"></_f><_f n=\"url\">/</_f></_r>";
        break;
    default:
        content.append("<_f n=\"host\">").append(host).append("</_r>");
        break;
    }
    return withContent(std::move(content), type);
}

} // namespace

std::string listField(std::string_view name, std::string_view value) {
    std::string field;
    appendLe32(field, static_cast<std::uint32_t>(name.size() + value.size() + 2));
    field.append(name).append(1, ':').append(value).append(1, '\0');
    return field;
}

std::string listContent(std::string_view host) {
    return fieldsBefore() + listField("host", host) + fieldsAfter();
}

std::string xmlContent(std::string_view host) {
    std::string content(xmlStart);
    content.append("<_f n=\"method\">GET</_f><_f n=\"host\">").append(host);
    return content.append("</_f><_f n=\"url\">/index.html</_f></_r>");
}

std::string makePayload(const PayloadFields& fields) {
    std::string payload(contentOffset, '\0');
    storeLe32(payload.data() + typeOffset, fields.type);
    storeLe32(payload.data() + kindOffset, fields.kind);
    storeLe32(payload.data() + netActionOffset, fields.netAction);
    storeLe32(payload.data() + contentLengthOffset,
              fields.contentLength.value_or(static_cast<std::uint32_t>(fields.content.size())));
    return payload + fields.content;
}

std::string visitPayload(std::string_view host, std::uint32_t type, ContentForm form) {
    PayloadFields fields;
    fields.content = form == ContentForm::List ? listContent(host) : xmlContent(host);
    fields.type = type;
    return makePayload(fields);
}

void appendRecord(std::string& raw, const Record& record) {
    const auto* bytes = reinterpret_cast<const Bytef*>(record.payload.data());
    auto size = static_cast<std::uint32_t>(record.payload.size());
    appendLe32(raw, record.recordType);
    appendLe32(raw, record.length.value_or(size));
    appendLe32(raw, record.crc.value_or(static_cast<std::uint32_t>(crc32(0, bytes, size))));
    raw += record.payload;
}

Record makeSkipped(SkipKind kind, std::string_view host, std::uint32_t type,
                   std::uint32_t variant) {
    static constexpr std::array<std::uint32_t, 4> otherTypes = {0, 3, 11, 0x0A000000};
    static constexpr std::array<std::uint32_t, 4> invalidActions = {0, 1, 5, 0xFFFFFFFFu};
    switch (kind) {
    case SkipKind::OtherRecordType: {
        Record record;
        record.payload = visitPayload(host, type);
        record.recordType = otherTypes[variant % otherTypes.size()];
        return record;
    }
    case SkipKind::InvalidNetAction:
        return withWord(host, type, netActionOffset,
                        invalidActions[variant % invalidActions.size()]);
    case SkipKind::KindWithoutHost:
        return withWord(host, type, kindOffset, kindWithoutHost);
    case SkipKind::EmptyPayload:
        return Record{};
    case SkipKind::BelowNetAction:
        return shortened(host, type, netActionOffset + 3);
    case SkipKind::ShortPayload:
        return shortened(host, type, netActionOffset + 4);
    case SkipKind::NoContent:
        return shortened(host, type, contentOffset);
    case SkipKind::NoHostXml:
    case SkipKind::EmptyHostXml:
    case SkipKind::UnclosedXml:
        return skippedXml(kind, host, type);
    default:
        return skippedList(kind, host, type);
    }
}

} // namespace worldgen
