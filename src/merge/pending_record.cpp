#include "merge/pending_record.h"

namespace kestrine {

int PendingRecord::allocate() {
    return Util::assureNotEmpty(static_cast<int32_t>(g_maxRecordSize), &m_text);
}

void PendingRecord::hold(const UrlRecordView& record) {
    assert(!m_held && record.url.size() < m_text.size());
    std::ranges::copy(asBytes(record.url), m_text.data());
    m_record = record;
    m_record.url = asText(ByteView(m_text.data(), record.url.size()));
    m_held = true;
}

const UrlRecordView& PendingRecord::release() {
    assert(m_held);
    m_held = false;
    return m_record;
}

} // namespace kestrine
