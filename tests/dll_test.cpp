// The shipped DLL as a client sees it: its exports and interface rules, its
// reader, and its updates on this machine with the reports they deliver.
#include <cstring>
#include <thread>
#include <vector>

#include "kyguidlib/cguiddllreader.h"
#include "kyguidlib/guidpaths.h"
#include "kyguidlib/singletonex.h"
#include "tests/dlltestsupport.h"
#include "tests/testsupport.h"

namespace {

using KyGuidTest::DllTest;

TEST_F(DllTest, ExportsHandOutOneObjectPerInterfaceThatAnswersOnlyItsOwnIid) {
  KyGuid::IGuidReader* reader = Reader();
  KyGuid::IGuidUpdater* updater = Updater();
  ASSERT_TRUE(reader && updater && reader == Reader() && updater == Updater());
  void* out = nullptr;
  EXPECT_TRUE(reader->QueryInterface(KyGuid::IID_IGuidReader, &out) == S_OK && out == reader);
  EXPECT_TRUE(updater->QueryInterface(IID_IUnknown, &out) == S_OK && out == updater);
  EXPECT_EQ(E_POINTER, reader->QueryInterface(KyGuid::IID_IGuidReader, nullptr));
  // An unknown IID is E_NOINTERFACE, with or without a place for the pointer,
  // and leaves that place alone.
  for (void** place : {&out, static_cast<void**>(nullptr)}) {
    out = reinterpret_cast<void*>(0x5555);
    EXPECT_EQ(E_NOINTERFACE, reader->QueryInterface(KyGuid::IID_IGuidUpdater, place));
    EXPECT_EQ(E_NOINTERFACE, updater->QueryInterface(KyGuid::IID_IGuidReader, place));
    EXPECT_EQ(reinterpret_cast<void*>(0x5555), out);
  }
  // The objects live as long as the process.
  for (int i = 0; i < 3; ++i) EXPECT_TRUE(reader->Release() == 1 && updater->AddRef() == 1);
}

// What installers compare: each shipped binary's version resource, read
// back as they read it.
TEST_F(DllTest, ShippedBinariesCarryTheProductVersion) {
  for (const std::wstring file :
       {L"KyGuid64.dll", L"kyguid.exe", L"KyLogEx64.dll", L"KyReport64.dll"}) {
    const std::wstring path = KyGuid::AnsiToWide(KyGuidTest::ExecutableDir()) + L"\\" + file;
    DWORD ignored = 0;
    std::vector<uint8_t> data(GetFileVersionInfoSizeW(path.c_str(), &ignored));
    ASSERT_FALSE(data.empty()) << KyGuid::WideToAnsi(file);
    ASSERT_TRUE(GetFileVersionInfoW(path.c_str(), 0, static_cast<DWORD>(data.size()), data.data()));
    VS_FIXEDFILEINFO* fixed = nullptr;
    UINT length = 0;
    ASSERT_TRUE(VerQueryValueW(data.data(), L"\\", reinterpret_cast<void**>(&fixed), &length));
    EXPECT_EQ(static_cast<DWORD>(KYGUID_VERSION_MAJOR << 16 | KYGUID_VERSION_MINOR),
              fixed->dwFileVersionMS);
    EXPECT_EQ(static_cast<DWORD>(KYGUID_VERSION_PATCH << 16), fixed->dwProductVersionLS);
    auto text = [&data](const wchar_t* name) {
      wchar_t* value = nullptr;
      UINT units = 0;
      const std::wstring key = std::wstring(L"\\StringFileInfo\\040904B0\\") + name;
      return VerQueryValueW(data.data(), key.c_str(), reinterpret_cast<void**>(&value), &units)
                 ? KyGuid::WideToAnsi(value)
                 : std::string();
    };
    EXPECT_EQ(KyGuid::WideToAnsi(file), text(L"OriginalFilename"));
    EXPECT_EQ(KYGUID_VERSION, text(L"FileVersion"));
    EXPECT_EQ(KYGUID_VERSION, text(L"ProductVersion"));
    EXPECT_EQ("KyGuid", text(L"ProductName"));
    EXPECT_NE("", text(L"FileDescription"));
  }
  EXPECT_EQ(std::string("kyguid ") + KYGUID_VERSION + "\r\n",
            KyGuidTest::RunProcess("kyguid.exe --version").output);
}

// The reader's buffer rules, as clients of the suite size their buffers; the
// installed-copy reader passes each call on to the copy already loaded, this DLL.
TEST_F(DllTest, ReaderBufferRulesOfEachGetter) {
  KyGuidTest::MakeDirs(KyGuidTest::MachineProfileDir());
  KyGuidTest::IniWrite(GuidDbPath(), "ActiveGuid", "Guid", "00112233445566778899AABBCCDDEEFF");
  KyGuid::IGuidReader* installed = KyGuidUtils::CSingletonEx<KyGuid::CGuidDllReader>::Instance();
  for (KyGuid::IGuidReader* reader : {Reader(), installed}) {
    char narrow[40];
    memset(narrow, 'X', sizeof(narrow));
    EXPECT_FALSE(reader->GetGuidStringA(narrow, 16));
    EXPECT_EQ(std::string(16, '\0') + "XXXX", std::string(narrow, 20));
    EXPECT_TRUE(reader->GetGuidStringA(narrow, 32));  // exactly 32: no terminator
    EXPECT_EQ("00112233445566778899AABBCCDDEEFFX", std::string(narrow, 33));
    wchar_t wide[40];
    for (uint64_t count : {32u, 33u}) {  // 33 units always, the 34th from 33 on
      wmemset(wide, L'X', 40);
      EXPECT_TRUE(reader->GetGuidStringW(wide, count));
      EXPECT_EQ(std::wstring(L"00112233445566778899AABBCCDDEEFF") + L'\0' +
                    (count == 33 ? L'\0' : L'X') + L'X',
                std::wstring(wide, 35));
    }
    uint8_t bytes[16];
    ASSERT_TRUE(reader->GetGuidBytes(bytes, sizeof(bytes)));
    EXPECT_TRUE(bytes[1] == 0x11 && bytes[15] == 0xFF);  // high nibble first
    EXPECT_FALSE(reader->GetGuidBytes(bytes, 15) || bytes[14] != 0);
    EXPECT_FALSE(reader->GetGuidStringW(wide, 31) || reader->GetGuidStringW(nullptr, 64) ||
                 reader->GetGuidStringA(nullptr, 64) || reader->GetGuidBytes(nullptr, 64));
  }
}

TEST_F(DllTest, ReaderCachesOnlyA32DigitGuidAndTheLastGoodOneOutlivesTheFile) {
  int touches = 0;
  const auto read = [this, &touches](const char* value) {  // a later time stamp each write
    if (value) KyGuidTest::IniWrite(GuidDbPath(), "ActiveGuid", "Guid", value);
    if (value) KyGuidTest::TouchForward(GuidDbPath(), ++touches);
    char text[33] = {};
    return Reader()->GetGuidStringA(text, sizeof(text)) ? std::string(text) : "";
  };
  const std::string guid = "0123456789abcdef0123456789abcdef";
  KyGuidTest::MakeDirs(KyGuidTest::MachineProfileDir());
  for (const std::string& bad : {guid + "0", guid.substr(1), guid.substr(1) + "g", std::string()}) {
    EXPECT_EQ("", read(bad.c_str())) << bad;
  }
  EXPECT_EQ(guid, read(guid.c_str()));
  EXPECT_EQ(guid, read(nullptr));
  EXPECT_EQ(1, CountLog("read guid: "));  // parsed again only when the file changes
  EXPECT_EQ(guid, read("not a guid"));
  ASSERT_TRUE(DeleteFileA(GuidDbPath().c_str()));
  EXPECT_EQ(guid, read(nullptr));
}

TEST_F(DllTest, BackgroundRunHoldsOffOtherProcessesAndSendsTheCachedReportBeforeItsOwn) {
  ASSERT_EQ(1u, Updater()->UpdateNow());  // caches its report, sends nothing
  const std::string guid = KyGuidTest::IniRead(GuidDbPath(), "ActiveGuid", "Guid");
  EXPECT_EQ(INVALID_FILE_ATTRIBUTES, GetFileAttributesA(m_reportPath.c_str()));

  ASSERT_TRUE(Updater()->StartUpdate());
  for (int waited = 0; waited < 20000 && CountLog("wait for 60 seconds") == 0; waited += 20)
    Sleep(20);
  const KyGuidTest::ProcessResult busy = KyGuidTest::RunProcess("kyguid.exe update");
  EXPECT_NE(std::string::npos, busy.output.find("result: none (another process is still updating)"))
      << busy.output;
  EXPECT_TRUE(Updater()->StopUpdate());

  // The cached report (result 1), then the run's own (0), each with the GUID
  // that the installed copy, this DLL, reads.
  const std::vector<std::string> lines = KyGuidTest::ReadLines(m_reportPath);
  ASSERT_EQ(2u, lines.size());
  const std::string tail =
      R"(","installed_guid":")" + guid + R"(","process_name":"kyguid_dll_tests"}})";
  for (size_t i = 0; i < 2; ++i) {
    EXPECT_EQ(0u, lines[i].find(R"({"business":"KyGuid","fields":{"update_result":")" +
                                std::to_string(1 - i) + R"(","system_disk":)"));
    EXPECT_EQ(lines[i].size() - tail.size(), lines[i].rfind(tail)) << lines[i];
  }
}

// A UI thread of a host lives in a single-threaded apartment. An update on it
// that asks WMI about a vanished adapter must leave that apartment in place.
using StoredAdapterGoneTest = DllTest;

TEST_F(StoredAdapterGoneTest, UpdateAndBuildOnAUiThreadLeaveItsApartmentInPlace) {
  // The adapter the stored GUID was built from is gone, but the registry
  // still names its Plug and Play id: matching asks WMI about it.
  const std::string key =
      "System\\CurrentControlSet\\Control\\Network\\"
      "{4D36E972-E325-11CE-BFC1-08002BE10318}\\{0A0B0C0D-1111-2222-3333-444455556666}";
  const char id[] = "PCI\\VEN_FFFF&DEV_0001\\0";
  ASSERT_EQ(ERROR_SUCCESS, RegSetKeyValueA(HKEY_LOCAL_MACHINE, (key + "\\Connection").c_str(),
                                           "PnpInstanceID", REG_SZ, id, sizeof(id)));
  EXPECT_EQ(1u, Updater()->UpdateNow());
  for (const bool build : {false, true}) {
    KyGuidTest::IniWrite(GuidDbPath(), "ActiveGuid", "AdapterKey", "Mac:{0000000000fe}");
    KyGuidTest::IniWrite(GuidDbPath(), "ActiveGuid", "AdapterDetail",
                         "Guid:{0A0B0C0D-1111-2222-3333-444455556666}Desc:{gone}Mac:{0000000000fe}"
                         "Proto:{6}Type:{110}Score:{100}");
    HRESULT enter = E_FAIL, after = E_FAIL;  // after: a second CoInitializeEx once the call ran
    std::thread([&] {
      enter = CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
      char guid[33];
      build ? (void)Updater()->BuildGuidNow(guid, sizeof(guid)) : (void)Updater()->UpdateNow();
      after = CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
      CoUninitialize();
      CoUninitialize();
    }).join();
    EXPECT_TRUE(enter == S_OK && after == S_FALSE) << build << ": " << enter << " " << after;
    // The disk under Wine is not good enough alone, so WMI had the last word.
    EXPECT_EQ(build ? 2 : 1, CountLog("Bad Disk match, adapter not found, rebuild guid"));
  }
  RegDeleteTreeA(HKEY_LOCAL_MACHINE, key.c_str());
}

}  // namespace
