#include "oscl/registry.h"
#include "oscl/user_feature.h"
#include "tests/oscl/registry_fixture.h"

namespace {

using namespace std::string_literals;

const std::string kLongest(255, 'd');
const std::string kKey = "[KEY]\n1\nHKEY_CURRENT_USER\\K\n";
const std::string kFile = kKey + "[VALUE]\ntext\n1\nhello\n[VALUE]\nnumber\n4\n-7\n" +
                          "[VALUE]\nlongest\n1\n" + kLongest + "\n[VALUE]\nempty\n1\n";
// The key and the beginning of its value, as the library writes them.
const std::string kWritten = "[KEY]|0x00000001|HKEY_CURRENT_USER\\K|[VALUE]|text|";

class UserFeatureTest : public RegistryFixture {
 protected:
  UserFeatureTest() { Store(kFile); }
  ~UserFeatureTest() override { EXPECT_EQ(OSCL_UserFeature_Cleanup(nullptr, &key_), S_OK); }

  HRESULT Read(const char* name, uint32_t kind) {
    return OSCL_UserFeature_ReadValue(nullptr, &key_, name, kind);
  }

  UserFeatureKey key_ = {1, "K", nullptr, 0};
};

// Has a line for each kind. It shows what is read of no value, a number, the longest text and a
// text (result, size, total length, data), and what is written with half of the text's size.
TEST_F(UserFeatureTest, every_kind_is_read_and_written_as_its_type) {
  std::ostringstream lines;
  lines << std::hex;
  for (uint32_t kind = 0; kind <= USER_FEATURE_MULTI_STRING; ++kind) {
    Store(kFile);
    for (const char* name : {"none", "number", "longest", "text"}) {
      OSCL_UserFeature_DeleteValues(&key_);
      lines << Read(name, kind) << ',';
      const UserFeatureValue& value = *key_.values;
      const bool block = kind == USER_FEATURE_BINARY || kind == USER_FEATURE_STRING;
      const char* text = block ? value.data.string : nullptr;
      EXPECT_TRUE(text == nullptr || text[value.size] == '\0');
      if (kind == USER_FEATURE_MULTI_STRING && value.size != 0) text = value.data.strings->text;
      lines << value.size << ',' << value.totalLength << ',';
      if (text == nullptr) {
        lines << value.data.number64 << ' ';
      } else {
        lines << (text == kLongest ? "longest" : text) << ' ';
      }
    }
    Store(kKey);
    UserFeatureValue half = *key_.values;
    if (kind != USER_FEATURE_MULTI_STRING) half.size /= 2;
    // The first write leaves a file that does not load, so a second fails.
    UserFeatureValue values[] = {half, half};
    UserFeatureKey key = {1, "K", values, 1 + kind % 2};
    EXPECT_EQ(OSCL_UserFeature_WriteValues(nullptr, &key), kind % 2 == 0 ? 0u : 13u);
    lines << StoredLines().substr(kWritten.size()) << '\n';
  }
  EXPECT_EQ(lines.str(),
            "80004005,0,0,0 80004005,0,0,0 80004005,0,0,0 80004005,0,0,0 0|\n"
            "0,0,0,0 0,4,0,\xF9\xFF\xFF\xFF 0,100,0,longest 0,6,0,hello 3|hel|\n"
            "0,0,0,0 0,0,0,fffffff9 0,0,0,64646464 0,0,0,6c6c6568 4|1819043176|\n"
            "0,0,0,0 0,0,0,fffffff9 0,0,0,6464646464646464 0,0,0,6f6c6c6568 11|1819043176|\n"
            "0,0,0,0 0,0,0,fffffff9 0,0,0,64646464 0,0,0,6c6c6568 4|1819043176|\n"
            "0,0,0,0 0,0,0,fffffff9 0,0,0,6464646464646464 0,0,0,6f6c6c6568 11|1819043176|\n"
            "0,0,0,0 0,0,0,fffffff9 0,0,0,64646464 0,0,0,6c6c6568 4|1819043176|\n"
            "0,0,0,0 0,4,0,\xF9\xFF\xFF\xFF 0,100,0,longest 0,6,0,hello 1|hel|\n"
            "80004005,0,0,0 80004005,0,0,0 0,1,100,longest 0,1,6,hello 7|hello|\n");
}

TEST_F(UserFeatureTest, full_paths_are_split_and_wrong_arguments_are_refused) {
  uint32_t size = 0, root = 0;
  char text[256] = "a", *sub = nullptr;
  EXPECT_EQ(OSCL_UserFeature_ParsePath(nullptr, "HKEY_CURRENT_USER\\a", &root, &sub), S_OK);
  EXPECT_EQ(root, 1u);
  EXPECT_EQ(OSCL_UserFeature_ParsePath(nullptr, "HKEY_LOCAL_MACHINE\\a", &root, &sub), S_OK);
  EXPECT_EQ(root, 2u);
  EXPECT_STREQ(sub, "a");
  for (const auto call :
       {OSCL_UserFeature_ReadValueBinary, OSCL_UserFeature_ReadValueMultiString,
        OSCL_UserFeature_ReadValuePrimitive, OSCL_UserFeature_WriteValueBinary,
        OSCL_UserFeature_WriteValueMultiString, OSCL_UserFeature_WriteValuePrimitive}) {
    EXPECT_EQ(call(1, nullptr), E_FAIL);
  }
  UserFeatureValue listed = {nullptr, USER_FEATURE_MULTI_STRING, {}, 1, 0};
  UserFeatureKey empty = {1, "K", nullptr, 1};
  void* data = nullptr;
  for (const HRESULT result :
       {OSCL_UserFeature_SetValueName(nullptr, "a"),
        OSCL_UserFeature_SetValueName(&listed, nullptr),
        OSCL_UserFeature_SetValueName(&listed, (kLongest + "d").c_str()),
        OSCL_UserFeature_ReadValueInit(nullptr, "a", 7),
        OSCL_UserFeature_ReadValueInit(&key_, nullptr, 7),
        OSCL_UserFeature_SetMultiStringValue(nullptr, text, 2),
        OSCL_UserFeature_SetMultiStringValue(&listed, nullptr, 2),
        OSCL_UserFeature_ReadValue(nullptr, nullptr, "a", 7),
        OSCL_UserFeature_ReadValues(nullptr, &key_),
        OSCL_UserFeature_ReadValueVarLen(1, "a", 0, nullptr, &size),
        OSCL_UserFeature_ReadValueVarLen(1, "a", 0, &data, nullptr),
        OSCL_UserFeature_WriteValues(nullptr, nullptr),
        OSCL_UserFeature_WriteValues(nullptr, &empty),
        OSCL_UserFeature_WriteValueMultiString(1, &listed),
        OSCL_UserFeature_EnableNotification(nullptr, nullptr),
        OSCL_UserFeature_ParsePath(nullptr, nullptr, &root, &sub),
        OSCL_UserFeature_ParsePath(nullptr, "HKEY_LOCAL_MACHINE\\", &root, &sub),
        // Only two roots are supported.
        OSCL_UserFeature_ParsePath(nullptr, "HKEY_USERS\\a", &root, &sub),
        OSCL_UserFeature_ParsePath(nullptr, "HKEY_LOCAL_MACHINES\\a", &root, &sub),
        OSCL_ReadRegistryValue("K", "none", REG_SZ, 1, text),
        OSCL_ReadRegistryValue("K", "empty", REG_SZ, 1, nullptr),
        OSCL_ReadRegistryValue("K", "longest", REG_DWORD, 1, text)}) {
    EXPECT_EQ(result, E_FAIL);
  }
  EXPECT_EQ(text, kLongest) << "a value of another type is copied";
  EXPECT_EQ(OSCL_ReadRegistryValue("K", "text", REG_SZ, 1, text), S_OK);
  EXPECT_STREQ(text, "hello");
  EXPECT_EQ(OSCL_ReadRegistryValue("K", "number", REG_DWORD, 1, text), S_OK);
  EXPECT_EQ(std::string(text, 4), "\xF9\xFF\xFF\xFF");
}

TEST_F(UserFeatureTest, a_description_is_used_again_and_keeps_its_number) {
  key_.valueCount = 2;
  key_.values = static_cast<UserFeatureValue*>(AllocAndZeroMem(2 * sizeof(UserFeatureValue)));
  const std::string name(256, 'n');
  UserFeatureValue& second = key_.values[1];
  EXPECT_EQ(OSCL_UserFeature_SetValueName(&second, &name[1]), S_OK);
  EXPECT_EQ(OSCL_UserFeature_SetValueName(&second, second.name + 250), S_OK);
  EXPECT_EQ(Read(second.name, USER_FEATURE_NUMBER64_A), S_OK);
  EXPECT_EQ(key_.valueCount, 1u);
  UserFeatureValue& value = *key_.values;
  EXPECT_STREQ(value.name, "nnnnn");
  value.data.number64 = 0x100000007;
  EXPECT_EQ(Read(value.name, USER_FEATURE_NUMBER32_A), S_OK) << "the value's own name is accepted";
  EXPECT_EQ(Read("empty", USER_FEATURE_NUMBER32_A), S_OK);
  EXPECT_EQ(value.data.number64, 0x100000007u);
  EXPECT_EQ(Read("none", USER_FEATURE_MULTI_STRING), E_FAIL);
  EXPECT_EQ(value.data.strings, nullptr) << "the number is not a pointer";
  EXPECT_EQ(Read("text", USER_FEATURE_MULTI_STRING), S_OK);
  EXPECT_EQ(OSCL_UserFeature_ClearValue(&value), S_OK);
  EXPECT_EQ(value.size + value.totalLength, 0u);
  EXPECT_EQ(Read(name.c_str(), USER_FEATURE_STRING), E_FAIL);
  EXPECT_EQ(value.name, nullptr);
  key_.path = "none";
  EXPECT_EQ(OSCL_UserFeature_WriteValues(nullptr, &key_), 15u);
  EXPECT_EQ(GetLastError(), 15u);
}

TEST_F(UserFeatureTest, several_strings_are_written_within_their_size) {
  char text[] = "one", other[] = "second";
  UserFeatureString strings[] = {{text, 3}, {other, 6}, {nullptr, 1}, {nullptr, 0xFFFFFFFF}};
  UserFeatureValue value = {const_cast<char*>("text"), USER_FEATURE_MULTI_STRING, {}, 0, 0};
  value.data.strings = strings;
  const std::string one = kWritten + "7|one|";
  for (const std::string& stored : {kWritten + "7||", one, one, kKey, kKey}) {
    Store(kKey);
    EXPECT_EQ(OSCL_UserFeature_WriteValueMultiString(1, &value), stored == kKey ? E_FAIL : S_OK);
    EXPECT_EQ(StoredLines(), stored);
    ++value.size;
  }
}

TEST_F(UserFeatureTest, a_watch_restarts_and_closes_descriptor_1_when_it_ends) {
  UserFeatureNotifyKey watch = {1, "K", 0, nullptr};
  for (int i = 0; i < 2; ++i) {
    OSCL_UserFeature_RegistryCallback(&watch, 0);
    EXPECT_EQ(watch.changed, 1u);
    EXPECT_EQ(OSCL_UserFeature_EnableNotification(nullptr, &watch), S_OK);
    EXPECT_EQ(watch.changed, 0u);
  }
  for (const bool watched : {true, false}) {
    const int output = dup(1);
    EXPECT_EQ(OSCL_UserFeature_DisableNotification(nullptr, &watch), S_OK);
    EXPECT_EQ(fcntl(1, F_GETFD) == -1, watched) << "without a watch nothing is closed";
    dup2(output, 1);
    close(output);
  }
}

}  // namespace
