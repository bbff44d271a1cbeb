// The reader through its interface slots, on a Guid.db of each test's own.
#include <cstring>

#include "kyguidlib/cguidreader.h"
#include "tests/testsupport.h"

namespace {

using KyGuidTest::IniWrite;
using KyGuidTest::MakeDirs;

constexpr char kGuid[] = "0123456789abcdef0123456789abcdef";

class TestReader final : public KyGuid::CGuidReader {
 public:
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
  ULONG STDMETHODCALLTYPE AddRef() override { return 1; }
  ULONG STDMETHODCALLTYPE Release() override { return 1; }
};

class ReaderTest : public KyGuidTest::IsolatedTest {
 protected:
  void SetUp() override {
    IsolatedTest::SetUp();
    MakeDirs(ProfileDir());
    m_reader = std::make_unique<TestReader>();
  }
  void WriteGuid(const char* value) {
    IniWrite(GuidDbPath(), "ActiveGuid", "Guid", value);
    KyGuidTest::TouchForward(GuidDbPath(), ++m_touches);
  }
  std::string ReadA() {
    char text[33] = {};
    return m_reader->GetGuidStringA(text, sizeof(text)) ? text : "";
  }
  int ReadLines() { return CountLog("read guid: "); }

  std::unique_ptr<TestReader> m_reader;
  int m_touches = 0;
};

TEST_F(ReaderTest, NarrowBufferOfExactly32GetsNoTerminator) {
  WriteGuid(kGuid);
  char buffer[40];
  memset(buffer, 'X', sizeof(buffer));
  EXPECT_TRUE(m_reader->GetGuidStringA(buffer, 32));
  EXPECT_EQ(std::string(buffer, 32), kGuid);
  EXPECT_EQ(buffer[32], 'X');

  memset(buffer, 'X', sizeof(buffer));
  EXPECT_TRUE(m_reader->GetGuidStringA(buffer, 33));
  EXPECT_STREQ(buffer, kGuid);
}

TEST_F(ReaderTest, ShortBuffersAreZeroedAndRefusedWithoutReadingTheFile) {
  WriteGuid(kGuid);
  char narrow[16];
  memset(narrow, 'X', sizeof(narrow));
  EXPECT_FALSE(m_reader->GetGuidStringA(narrow, 16));
  EXPECT_EQ(std::string(16, '\0'), std::string(narrow, 16));

  uint8_t bytes[15];
  memset(bytes, 0xAA, sizeof(bytes));
  EXPECT_FALSE(m_reader->GetGuidBytes(bytes, sizeof(bytes)));
  EXPECT_EQ(0, bytes[0]);
  EXPECT_EQ(0, bytes[14]);

  wchar_t wide[31];
  EXPECT_FALSE(m_reader->GetGuidStringW(wide, 31));
  EXPECT_FALSE(m_reader->GetGuidStringA(nullptr, 64));
  EXPECT_FALSE(m_reader->GetGuidBytes(nullptr, 64));
  EXPECT_FALSE(m_reader->GetGuidStringW(nullptr, 64));
  EXPECT_EQ(0, ReadLines());
}

TEST_F(ReaderTest, WideGetterStoresThirtyThreeUnitsAndTheThirtyFourthFromCount33) {
  WriteGuid(kGuid);
  wchar_t wide[40];
  wmemset(wide, L'X', 40);
  EXPECT_TRUE(m_reader->GetGuidStringW(wide, 32));
  EXPECT_EQ(std::wstring(L"0123456789abcdef0123456789abcdef"), std::wstring(wide, 32));
  EXPECT_EQ(L'\0', wide[32]);
  EXPECT_EQ(L'X', wide[33]);

  wmemset(wide, L'X', 40);
  EXPECT_TRUE(m_reader->GetGuidStringW(wide, 33));
  EXPECT_EQ(L'\0', wide[32]);
  EXPECT_EQ(L'\0', wide[33]);
  EXPECT_EQ(L'X', wide[34]);
}

TEST_F(ReaderTest, BytesAreHighNibbleFirstAndTextKeepsTheFileCase) {
  WriteGuid("00112233445566778899AABBCCDDEEFF");
  uint8_t bytes[16];
  ASSERT_TRUE(m_reader->GetGuidBytes(bytes, sizeof(bytes)));
  const uint8_t expected[16] = {0x00, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77,
                                0x88, 0x99, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF};
  EXPECT_EQ(0, memcmp(expected, bytes, 16));
  EXPECT_EQ("00112233445566778899AABBCCDDEEFF", ReadA());
}

TEST_F(ReaderTest, WaitForGuidAnswersAtOnceWithoutReading) {
  EXPECT_TRUE(m_reader->WaitForGuid(0));
  EXPECT_TRUE(m_reader->WaitForGuid(0xFFFFFFFFu));
  EXPECT_EQ(0, ReadLines());
}

TEST_F(ReaderTest, FileIsParsedOnlyWhenItsWriteTimeChanges) {
  WriteGuid(kGuid);
  EXPECT_EQ(kGuid, ReadA());
  EXPECT_EQ(kGuid, ReadA());
  EXPECT_EQ(1, ReadLines());

  WriteGuid(kGuid);  // same content, new time
  EXPECT_EQ(kGuid, ReadA());
  EXPECT_EQ(kGuid, ReadA());
  EXPECT_EQ(2, ReadLines());
}

TEST_F(ReaderTest, MalformedValuesCacheNothing) {
  for (const char* bad : {"0123456789abcdef0123456789abcdef0", "0123456789abcdef0123456789abcde",
                          "0123456789abcdef0123456789abcdeg", "", " 0123456789abcdef0123456789abcde"}) {
    WriteGuid(bad);
    char text[33];
    EXPECT_FALSE(m_reader->GetGuidStringA(text, sizeof(text))) << bad;
    EXPECT_EQ(std::string(32, '\0'), std::string(text, 32)) << bad;
  }
  EXPECT_EQ(0, ReadLines());
  WriteGuid(kGuid);
  EXPECT_EQ(kGuid, ReadA());
}

TEST_F(ReaderTest, LastGoodGuidSurvivesASpoiledOrDeletedFile) {
  WriteGuid(kGuid);
  EXPECT_EQ(kGuid, ReadA());
  WriteGuid("not a guid");
  EXPECT_EQ(kGuid, ReadA());
  ASSERT_TRUE(DeleteFileA(GuidDbPath().c_str()));
  EXPECT_EQ(kGuid, ReadA());
  uint8_t bytes[16];
  EXPECT_TRUE(m_reader->GetGuidBytes(bytes, sizeof(bytes)));
  EXPECT_EQ(0x01, bytes[0]);
}

TEST_F(ReaderTest, NoFileGivesNoGuid) {
  char text[40];
  memset(text, 'X', sizeof(text));
  EXPECT_FALSE(m_reader->GetGuidStringA(text, sizeof(text)));
  EXPECT_EQ(std::string(40, '\0'), std::string(text, 40));
}

}  // namespace
