// The bounds-checked reader and writer. The bytes lie between inaccessible pages, so that one
// access outside of them ends the test.
#include "base/wire.h"

#include "tests/support/test.h"

namespace lanyard::test::wire_test {
namespace {

TEST(ByteReader, ReadsNumbersMostSignificantByteFirst) {
    const GuardedBuffer buffer("01 0203 04050607 ff fffe fffffffd"_hex);
    ByteReader reader(buffer.bytes());
    EXPECT_EQ(14U, reader.left());
    EXPECT_EQ(0x01, reader.u8());
    EXPECT_EQ(0x0203, reader.u16());
    EXPECT_EQ(0x04050607U, reader.u32());
    EXPECT_EQ(0xff, reader.u8());
    EXPECT_EQ(0xfffe, reader.u16());
    EXPECT_EQ(0xfffffffdU, reader.u32());
    EXPECT_EQ(0U, reader.left());
    EXPECT_TRUE(reader.ok());
}

TEST(ByteReader, HandsOutViewsOfTheBytes) {
    const GuardedBuffer buffer("01020304"_hex);
    ByteReader reader(buffer.bytes());
    const auto taken = reader.take(3);
    EXPECT_EQ(buffer.data(), taken.data());
    EXPECT_BYTES_EQ("010203"_hex, taken);
    EXPECT_EQ(buffer.data() + 3, reader.rest().data());
    EXPECT_BYTES_EQ("04"_hex, reader.rest());
    EXPECT_EQ(1U, reader.left());
}

TEST(ByteReader, TakesNothingAtTheEndWithoutFailing) {
    const GuardedBuffer buffer("01"_hex);
    ByteReader reader(buffer.bytes());
    EXPECT_EQ(0x01, reader.u8());
    EXPECT_TRUE(reader.take(0).empty());
    EXPECT_TRUE(reader.rest().empty());
    EXPECT_TRUE(reader.ok());
}

TEST(ByteReader, YieldsNothingForMoreThanThereIsAndFailsForGood) {
    const GuardedBuffer buffer("01020304"_hex);
    ByteReader reader(buffer.bytes());
    EXPECT_TRUE(reader.take(5).empty());
    EXPECT_FALSE(reader.ok());
    // What would have fitted is not read either: a parser must not go on after a gap.
    EXPECT_EQ(0U, reader.left());
    EXPECT_TRUE(reader.rest().empty());
    EXPECT_EQ(0, reader.u8());
    EXPECT_TRUE(reader.take(0).empty());
    EXPECT_FALSE(reader.ok());
}

TEST(ByteReader, YieldsZeroForANumberThatIsCutShort) {
    const GuardedBuffer buffer("ffffff"_hex);
    ByteReader four(buffer.bytes());
    EXPECT_EQ(0U, four.u32());
    EXPECT_FALSE(four.ok());

    ByteReader two(buffer.bytes());
    EXPECT_EQ(0xffff, two.u16());
    EXPECT_EQ(0, two.u16());
    EXPECT_FALSE(two.ok());

    ByteReader one(buffer.bytes().first(0));
    EXPECT_TRUE(one.ok());
    EXPECT_EQ(0, one.u8());
    EXPECT_FALSE(one.ok());
}

TEST(ByteReader, IsNotFooledByTheLargestSizes) {
    const GuardedBuffer buffer("0102"_hex);
    ByteReader reader(buffer.bytes());
    EXPECT_EQ(0x01, reader.u8());
    EXPECT_TRUE(reader.take(SIZE_MAX).empty());
    EXPECT_FALSE(reader.ok());
}

TEST(ByteWriter, WritesNumbersMostSignificantByteFirst) {
    GuardedBuffer buffer(14);
    ByteWriter writer(buffer.bytes());
    writer.u8(0x01);
    writer.u16(0x0203);
    writer.u32(0x04050607);
    writer.u8(0xff);
    writer.u16(0xfffe);
    EXPECT_EQ(4U, writer.left());
    writer.u32(0xfffffffd);
    EXPECT_BYTES_EQ("01 0203 04050607 ff fffe fffffffd"_hex, buffer.bytes());
    EXPECT_EQ(0U, writer.left());
    EXPECT_TRUE(writer.ok());
}

TEST(ByteWriter, CopiesBytesAndLeavesTheRestAlone) {
    GuardedBuffer buffer(5);
    ByteWriter writer(buffer.bytes());
    writer.bytes("010203"_hex);
    writer.bytes({});
    EXPECT_TRUE(writer.ok());
    EXPECT_EQ(2U, writer.left());
    EXPECT_BYTES_EQ("010203 a5a5"_hex, buffer.bytes());
}

TEST(ByteWriter, HandsOutRoom) {
    GuardedBuffer buffer(4);
    ByteWriter writer(buffer.bytes());
    const auto room = writer.claim(3);
    EXPECT_EQ(buffer.data(), room.data());
    EXPECT_EQ(3U, room.size());
    EXPECT_EQ(1U, writer.left());
    writer.u8(0x04);
    EXPECT_TRUE(writer.claim(0).empty());
    EXPECT_TRUE(writer.ok());
    EXPECT_BYTES_EQ("a5a5a5 04"_hex, buffer.bytes());
}

TEST(ByteWriter, WritesNothingOfWhatDoesNotFitAndFailsForGood) {
    GuardedBuffer buffer(3);
    ByteWriter four(buffer.bytes());
    four.u32(0x01020304);
    EXPECT_FALSE(four.ok());
    EXPECT_EQ(0U, four.left());
    // What would have fitted is not written either.
    four.u8(0x01);
    four.bytes("01"_hex);
    EXPECT_TRUE(four.claim(1).empty());
    EXPECT_TRUE(four.claim(0).empty());
    EXPECT_FALSE(four.ok());

    ByteWriter copied(buffer.bytes());
    copied.bytes("01020304"_hex);
    EXPECT_FALSE(copied.ok());

    ByteWriter claimed(buffer.bytes());
    EXPECT_TRUE(claimed.claim(SIZE_MAX).empty());
    EXPECT_FALSE(claimed.ok());

    ByteWriter none(buffer.bytes().first(0));
    none.u8(0x01);
    EXPECT_FALSE(none.ok());

    EXPECT_BYTES_EQ("a5a5a5"_hex, buffer.bytes());
}

}  // namespace
}  // namespace lanyard::test::wire_test
