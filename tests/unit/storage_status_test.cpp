#include "storage/status.h"
#include "storage/url_key.h"
#include "support/temp_dir.h"
#include "support/url_file_helper.h"

#include <gtest/gtest.h>

namespace kestrine {
namespace {

using test::dayStatusOf;
using test::weekMonStatusOf;
using Bytes = std::vector<uint8_t>;

void put(Bytes& bytes, std::initializer_list<uint8_t> more) {
    bytes.insert(bytes.end(), more);
}

void putPath(Bytes& bytes, std::string_view path) {
    bytes.insert(bytes.end(), path.begin(), path.end());
    bytes.resize(bytes.size() + 260 - path.size());
}

// The frame around a body.
Bytes framed(const Bytes& body) {
    Bytes bytes(12);
    storeLittle(bytes.data(), urlKey(body));
    storeLittle(bytes.data() + 8, static_cast<uint32_t>(body.size()));
    bytes.insert(bytes.end(), body.begin(), body.end());
    return bytes;
}

class StatusTest : public testing::Test {
protected:
    template <typename Status>
    int write(const Status& status, Bytes& bytes) {
        const std::unique_ptr<File> file = platform().open(m_path, OpenMode::Truncate);
        const int result = status.writeStatus(file.get());
        bytes = test::readBytes(m_path);
        return result;
    }
    template <typename Status>
    int read(const Bytes& bytes, Status& status) {
        test::writeBytes(m_path, bytes);
        const std::unique_ptr<File> file = platform().open(m_path, OpenMode::Read);
        return Status::readStatus(file.get(), static_cast<int64_t>(bytes.size()), status);
    }

    test::TempDir m_directory;
    const std::string m_path = m_directory / "status";
};

TEST_F(StatusTest, DayHasItsFormat) {
    const std::string longest(259, 'p');
    DayStatus status = dayStatusOf({{"a/20240229", 7, 0x0102030405060708}, {longest, -1, 0}}, 3);
    status.setTotalCount(0x1112131415161718);

    Bytes body;
    put(body, {3, 0, 0, 0});
    put(body, {0x18, 0x17, 0x16, 0x15, 0x14, 0x13, 0x12, 0x11});
    put(body, {2, 0, 0, 0});
    putPath(body, "a/20240229");
    put(body, {7, 0, 0, 0, 8, 7, 6, 5, 4, 3, 2, 1});
    putPath(body, longest);
    put(body, {0xFF, 0xFF, 0xFF, 0xFF, 0, 0, 0, 0, 0, 0, 0, 0});

    Bytes bytes;
    ASSERT_EQ(write(status, bytes), 0);
    EXPECT_EQ(bytes, framed(body));
    EXPECT_EQ(bytes.size(), status.writtenSize());

    DayStatus copy;
    ASSERT_EQ(read(bytes, copy), 0);
    EXPECT_EQ(copy.newCounter(), 3);
    EXPECT_EQ(copy.totalCount(), status.totalCount());
    ASSERT_EQ(copy.entries().size(), 2u);
    EXPECT_EQ(copy.entries()[0].path, "a/20240229");
    EXPECT_EQ(copy.entries()[0].fileNumber, 7);
    EXPECT_EQ(copy.entries()[0].offset, 0x0102030405060708u);
    EXPECT_EQ(copy.entries()[1].path, longest);
    EXPECT_EQ(copy.entries()[1].fileNumber, -1);
    EXPECT_EQ(copy.date(), 20240229);
}

TEST_F(StatusTest, WeekAndMonthHasItsFormat) {
    WeekMonStatus status = weekMonStatusOf({{"r/new/20240229", 0x01020304}, {"q", -1}});
    status.setTotalCount(0x1112131415161718);

    Bytes body;
    put(body, {0x18, 0x17, 0x16, 0x15, 0x14, 0x13, 0x12, 0x11});
    put(body, {2, 0, 0, 0});
    putPath(body, "r/new/20240229");
    put(body, {4, 3, 2, 1});
    putPath(body, "q");
    put(body, {0xFF, 0xFF, 0xFF, 0xFF});

    Bytes bytes;
    ASSERT_EQ(write(status, bytes), 0);
    EXPECT_EQ(bytes, framed(body));

    WeekMonStatus copy;
    ASSERT_EQ(read(bytes, copy), 0);
    EXPECT_EQ(copy.totalCount(), status.totalCount());
    EXPECT_EQ(copy.counterOfDate("elsewhere/20240229"), 0x01020304);
    EXPECT_EQ(copy.counterOfDate("r/new/20240301"), -1);
    EXPECT_EQ(copy.getNewPath(), "r/new/20240229");
    copy.moveNextAfter();
    EXPECT_EQ(copy.getNewPath(), "q");
    EXPECT_EQ(copy.getNewCounter(), -1);
    EXPECT_FALSE(copy.atEnd());
    copy.moveNextAfter();
    EXPECT_TRUE(copy.atEnd());
    EXPECT_EQ(copy.getNewPath(), ""); // outside: reported, nothing read
    EXPECT_EQ(copy.getNewCounter(), -1);
    copy.moveFirst();
    EXPECT_EQ(copy.getNewCounter(), 0x01020304);
}

TEST_F(StatusTest, AnAlteredBodyIsFoundInADayAloneAndTruncationInBoth) {
    Bytes day;
    Bytes week;
    ASSERT_EQ(write(dayStatusOf({{"n/20240301", 1, 0}}), day), 0);
    ASSERT_EQ(write(weekMonStatusOf({{"n/20240301", 1}}), week), 0);
    for (const size_t at : {size_t{0}, size_t{7}, size_t{12}, size_t{100}, week.size() - 1}) {
        Bytes bytes = day;
        bytes[at] ^= 0x10;
        DayStatus dayStatus;
        EXPECT_EQ(read(bytes, dayStatus), -1) << at;
        bytes = week;
        bytes[at] ^= 0x10;
        WeekMonStatus weekStatus;
        EXPECT_EQ(read(bytes, weekStatus), 0) << at;
    }
    for (size_t length = 0; length < week.size(); length += length < 30 ? 1 : 50) {
        DayStatus dayStatus;
        EXPECT_EQ(read(Bytes(day.begin(), day.begin() + static_cast<int>(length)), dayStatus), -1);
        WeekMonStatus weekStatus;
        EXPECT_EQ(read(Bytes(week.begin(), week.begin() + static_cast<int>(length)), weekStatus),
                  -1);
    }
}

TEST_F(StatusTest, LengthIsBounded) {
    struct {
        size_t body;
        int result;
    } const table[] = {{0, -1}, {11, -1}, {4194304, 0}, {4194305, -1}};
    for (const auto& row : table) {
        const Bytes bytes = framed(Bytes(row.body));
        DayStatus day;
        EXPECT_EQ(read(bytes, day), row.result) << row.body;
        WeekMonStatus week;
        EXPECT_EQ(read(bytes, week), row.result) << row.body;
    }
    for (const uint32_t length : {4194305u, 0x7FFFFFFFu, 0xFFFFFFFFu}) { // refused unread
        Bytes bytes = framed(Bytes(100));
        storeLittle(bytes.data() + 8, length);
        WeekMonStatus week;
        EXPECT_EQ(read(bytes, week), -1) << length;
    }

    Bytes bytes;
    std::vector<NodeEntry> nodes((4194304 - 16) / 272, {"n", 1, 0});
    EXPECT_EQ(write(dayStatusOf(nodes), bytes), 0);
    EXPECT_LE(bytes.size(), 12u + 4194304u);
    nodes.push_back({"n", 1, 0});
    EXPECT_EQ(write(dayStatusOf(nodes), bytes), -1);
    EXPECT_TRUE(bytes.empty());
    std::vector<DateEntry> dates((4194304 - 12) / 264, {"n", 1});
    EXPECT_EQ(write(weekMonStatusOf(dates), bytes), 0);
    dates.push_back({"n", 1});
    EXPECT_EQ(write(weekMonStatusOf(dates), bytes), -1);
}

TEST_F(StatusTest, WhatCannotBeReadBackIsNotWritten) {
    Bytes bytes;
    EXPECT_EQ(write(DayStatus(), bytes), -1);
    EXPECT_EQ(write(WeekMonStatus(), bytes), -1);
    EXPECT_EQ(write(dayStatusOf({{std::string(260, 'p'), 0, 0}}), bytes), -1);
    EXPECT_EQ(write(weekMonStatusOf({{std::string(260, 'p'), 0}}), bytes), -1);
    EXPECT_TRUE(bytes.empty());
    EXPECT_EQ(dayStatusOf({{"n", 0, 0}}).writeStatus(nullptr), -1);
    EXPECT_EQ(weekMonStatusOf({{"n", 0}}).writeStatus(nullptr), -1);
}

TEST_F(StatusTest, PartialEntriesAreLeftOutAndTheStoredNumberIsNotTrusted) {
    Bytes body(16 + 2 * 272 + 271);
    storeLittle(body.data() + 12, uint32_t{1000000});
    body[16] = 'x';
    std::fill_n(body.begin() + 16 + 272, 260, uint8_t{'y'}); // path without its zero
    DayStatus day;
    ASSERT_EQ(read(framed(body), day), 0);
    ASSERT_EQ(day.entries().size(), 2u);
    EXPECT_EQ(day.entries()[0].path, "x");
    EXPECT_EQ(day.entries()[1].path, std::string(259, 'y'));

    WeekMonStatus week;
    ASSERT_EQ(read(framed(Bytes(12 + 264 + 263)), week), 0);
    EXPECT_EQ(week.entries().size(), 1u);
}

TEST(DayStatus, TakesTheNewerEntry) {
    DayStatus status = dayStatusOf({{"a/1", 5, 50}});
    status.updateIfNewer({"a/1", 4, 99}); // older: ignored
    status.updateIfNewer({"a/1", 5, 99}); // the same: stays
    status.updateIfNewer({"b/1", -1, 0}); // new
    ASSERT_EQ(status.entries().size(), 2u);
    EXPECT_EQ(status.entries()[0].offset, 50u);
    status.updateIfNewer({"a/1", 6, 7});
    EXPECT_EQ(status.entries()[0].fileNumber, 6);
    EXPECT_EQ(status.entries()[0].offset, 7u);
    ASSERT_NE(status.findEntry("b/1"), nullptr);
    EXPECT_EQ(status.findEntry("b/1")->fileNumber, -1);
    EXPECT_EQ(status.findEntry("c/1"), nullptr);
    EXPECT_EQ(DayStatus().date(), 0);
}

} // namespace
} // namespace kestrine
