// The --json writer: whatever the hardware strings hold, scripts get JSON.
#include <gtest/gtest.h>

#include "tests/flatjson.h"
#include "tools/kyguid/jsonwriter.h"

namespace {

using KyGuidCli::JsonWriter;
using KyGuidTest::FlatJson;

TEST(JsonWriterTest, NestsAndEscapesSoThatEveryValueReadsBackUnchanged) {
  const std::string awkward = "PCI\\VEN_8086 \"quoted\"\ttab\x01\x1f end";
  JsonWriter json;
  json.BeginObject().String("pnpId", awkward).Int("negative", -1).Null("nothing");
  json.BeginArray("empty").EndArray().BeginArray("list").String(nullptr, "a");
  json.BeginObject().Bool("yes", true).EndObject().EndArray().EndObject();

  const FlatJson read(json.Text());
  ASSERT_TRUE(read.Valid()) << json.Text();
  EXPECT_EQ(awkward, read["pnpId"]);
  EXPECT_EQ("-1", read["negative"]);
  EXPECT_EQ("null", read["nothing"]);
  EXPECT_EQ("#0", read["empty"]);
  EXPECT_EQ("a", read["list[0]"]);
  EXPECT_EQ("true", read["list[1].yes"]);
  EXPECT_EQ("#5", read[""]);
}

TEST(JsonWriterTest, TextAboveAsciiLeavesAsUtf8) {
  // "café" in the ANSI code page: whatever the code page maps 0xE9 to, the
  // output must be UTF-8 (no lone byte of 0x80 or above).
  JsonWriter json;
  json.BeginObject().String("description", "caf\xE9").EndObject();
  const std::string& text = json.Text();
  for (size_t i = 0; i < text.size(); ++i) {
    const unsigned char byte = static_cast<unsigned char>(text[i]);
    if (byte < 0x80) continue;
    ASSERT_GE(byte, 0xC2u) << "a continuation byte without a lead byte";
    ASSERT_LT(i + 1, text.size());
    EXPECT_EQ(0x80u, static_cast<unsigned char>(text[i + 1]) & 0xC0u);
    i += byte >= 0xE0 ? 2 : 1;
  }
  EXPECT_NE(std::string::npos, text.find("\"caf"));
}

}  // namespace
