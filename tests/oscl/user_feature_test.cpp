#include <fcntl.h>

#include <cstring>
#include <regex>
#include <utility>

#include "oscl/registry.h"
#include "oscl/user_feature.h"
#include "tests/oscl/registry_fixture.h"

namespace {

using namespace std::string_literals;

const std::string kLongest(255, 'd');
const std::string kFile =
    "[KEY]\n1\nHKEY_CURRENT_USER\\K\n[VALUE]\ntext\n1\nhello\n[VALUE]\nnumber\n4\n-7\n"
    "[VALUE]\nlongest\n1\n" +
    kLongest + "\n[VALUE]\nempty\n1\n";

class UserFeatureTest : public RegistryFixture {
 protected:
  UserFeatureTest() { Store(kFile); }
  ~UserFeatureTest() override { OSCL_UserFeature_Cleanup(nullptr, &key_); }

  HRESULT Read(const char* name, uint32_t kind) {
    return OSCL_UserFeature_ReadValue(nullptr, &key_, name, kind);
  }

  UserFeatureKey key_ = {1, "K", nullptr, 0};
};

TEST_F(UserFeatureTest, every_kind_reads_every_value) {
  const std::pair<const char*, std::string> kValues[] = {{"text", "hello\0"s},
                                                         {"number", "\xF9\xFF\xFF\xFF"},
                                                         {"longest", kLongest + '\0'},
                                                         {"none", ""}};
  for (const auto& [name, bytes] : kValues) {
    const bool text = !bytes.empty() && bytes.back() == '\0';
    for (uint32_t kind = 0; kind <= USER_FEATURE_MULTI_STRING + 1; ++kind) {
      SCOPED_TRACE(name + (" " + std::to_string(kind)));
      const bool good = kind == USER_FEATURE_MULTI_STRING ? text : kind % 9 != 0;
      EXPECT_EQ(Read(name, kind), good ? S_OK : E_FAIL);
      const UserFeatureValue& value = *key_.values;
      if (kind == USER_FEATURE_BINARY || kind == USER_FEATURE_STRING) {
        ASSERT_EQ(value.data.binary != nullptr, !bytes.empty());
        EXPECT_EQ(value.size, bytes.size());
        // Zeros follow the value, up to one byte behind the longest.
        const std::string zeros(bytes.empty() ? 0 : 257 - bytes.size(), '\0');
        EXPECT_EQ(std::string(value.data.string, bytes.size() + zeros.size()), bytes + zeros);
      } else if (kind == USER_FEATURE_MULTI_STRING) {
        ASSERT_EQ(value.size, text ? 1u : 0u);
        EXPECT_EQ(value.totalLength, text ? bytes.size() : 0);
        if (text) {
          EXPECT_EQ(std::string(value.data.strings->text, bytes.size()), bytes);
        }
      } else {
        uint64_t number = 0;
        if (good) bytes.copy(reinterpret_cast<char*>(&number), kind % 2 == 0 ? 4 : 8);
        EXPECT_EQ(value.data.number64, number);
      }
      OSCL_UserFeature_DeleteValues(&key_);
    }
    char data[256] = {};
    for (const uint32_t type : {REG_SZ, REG_DWORD}) {
      const bool good = type == (text ? REG_SZ : REG_DWORD) && !bytes.empty();
      EXPECT_EQ(OSCL_ReadRegistryValue("K", name, type, 1, data), good ? S_OK : E_FAIL) << name;
      EXPECT_EQ(std::string(data, bytes.size()), bytes);
    }
  }
}

TEST_F(UserFeatureTest, every_kind_is_written_as_its_type) {
  char text[] = "text";
  UserFeatureString string = {text, 4};
  // A bar stands for a line end and the indentation of the next line.
  const char* const kLines[] = {"0",    "3|tex", "4|7",   "11|7",   "4|7",
                                "11|7", "4|7",   "1|tex", "7|text", "0"};
  for (uint32_t kind = 0; kind <= USER_FEATURE_MULTI_STRING + 1; ++kind) {
    Store("[KEY]\n1\nHKEY_CURRENT_USER\\K\n");
    UserFeatureValue value = {const_cast<char*>("v"), kind, {}, 3, 0};
    value.data.number64 = 0x100000007;
    if (kind == USER_FEATURE_BINARY || kind == USER_FEATURE_STRING) value.data.string = text;
    if (kind == USER_FEATURE_MULTI_STRING) value.data.strings = &string, value.size = 1;
    UserFeatureValue values[] = {value, value};
    UserFeatureKey key = {1, "none", values, 1};
    EXPECT_EQ(OSCL_UserFeature_WriteValues(nullptr, &key), 15u);
    EXPECT_EQ(GetLastError(), 15u);
    key = {1, "K", values, 1 + kind % 2};
    // The first write leaves a file that does not load, so a second fails.
    EXPECT_EQ(OSCL_UserFeature_WriteValues(nullptr, &key), kind % 2 == 0 ? 0u : 13u);
    EXPECT_EQ(std::regex_replace(Stored(), std::regex(" \n\t*"), "|"),
              "[KEY]|0x00000001|HKEY_CURRENT_USER\\K|[VALUE]|v|"s + kLines[kind] + "|");
  }
}

TEST_F(UserFeatureTest, full_paths_are_split_after_the_root) {
  uint32_t root = 0;
  char* sub = nullptr;
  for (const char* path : {"HKEY_LOCAL_MACHINE\\", "HKEY_USERS\\a", "HKEY_LOCAL_MACHINES\\a"}) {
    EXPECT_EQ(OSCL_UserFeature_ParsePath(nullptr, path, &root, &sub), E_FAIL) << path;
  }
  EXPECT_EQ(OSCL_UserFeature_ParsePath(nullptr, "HKEY_CURRENT_USER\\a", &root, &sub), S_OK);
  EXPECT_EQ(root, 1u);
  EXPECT_EQ(OSCL_UserFeature_ParsePath(nullptr, "HKEY_LOCAL_MACHINE\\a", &root, &sub), S_OK);
  EXPECT_EQ(root, 2u);
  EXPECT_STREQ(sub, "a");
}

TEST_F(UserFeatureTest, null_is_refused_for_required_arguments) {
  UserFeatureValue listed = {nullptr, USER_FEATURE_MULTI_STRING, {}, 1, 0};
  UserFeatureKey empty = {1, "K", nullptr, 1};
  uint32_t size = 0;
  void* data = nullptr;
  char text[] = "a";
  for (const HRESULT result : {OSCL_UserFeature_ParsePath(nullptr, nullptr, &size, nullptr),
                               OSCL_UserFeature_SetValueName(nullptr, "a"),
                               OSCL_UserFeature_SetValueName(&listed, nullptr),
                               OSCL_UserFeature_ReadValueInit(nullptr, "a", 7),
                               OSCL_UserFeature_ReadValueInit(&key_, nullptr, 7),
                               OSCL_UserFeature_SetMultiStringValue(nullptr, text, 2),
                               OSCL_UserFeature_SetMultiStringValue(&listed, nullptr, 2),
                               OSCL_UserFeature_ReadValue(nullptr, nullptr, "a", 7),
                               OSCL_UserFeature_ReadValueVarLen(1, "a", 0, nullptr, &size),
                               OSCL_UserFeature_ReadValueVarLen(1, "a", 0, &data, nullptr),
                               OSCL_UserFeature_ReadValueBinary(1, nullptr),
                               OSCL_UserFeature_ReadValueString(1, nullptr),
                               OSCL_UserFeature_ReadValueMultiString(1, nullptr),
                               OSCL_UserFeature_ReadValuePrimitive(1, nullptr),
                               OSCL_UserFeature_WriteValues(nullptr, nullptr),
                               OSCL_UserFeature_WriteValues(nullptr, &empty),
                               OSCL_UserFeature_WriteValueBinary(1, nullptr),
                               OSCL_UserFeature_WriteValueString(1, nullptr),
                               OSCL_UserFeature_WriteValueMultiString(1, nullptr),
                               OSCL_UserFeature_WriteValueMultiString(1, &listed),
                               OSCL_UserFeature_WriteValuePrimitive(1, nullptr),
                               OSCL_UserFeature_EnableNotification(nullptr, nullptr)}) {
    EXPECT_EQ(result, E_FAIL);
  }
}

TEST_F(UserFeatureTest, a_value_that_is_read_replaces_those_before) {
  key_.valueCount = 2;
  key_.values = static_cast<UserFeatureValue*>(AllocAndZeroMem(2 * sizeof(UserFeatureValue)));
  UserFeatureValue& value = key_.values[1];
  EXPECT_EQ(OSCL_UserFeature_SetValueName(&value, std::string(256, 'n').c_str()), E_FAIL);
  EXPECT_EQ(OSCL_UserFeature_SetValueName(&value, std::string(255, 'n').c_str()), S_OK);
  EXPECT_EQ(OSCL_UserFeature_SetValueName(&value, value.name + 250), S_OK);
  EXPECT_EQ(Read(value.name, USER_FEATURE_NUMBER64_A), S_OK);
  EXPECT_EQ(key_.valueCount, 1u);
  EXPECT_STREQ(key_.values->name, "nnnnn");
  EXPECT_EQ(Read("text", USER_FEATURE_STRING), S_OK);
  EXPECT_EQ(Read(key_.values->name, USER_FEATURE_BINARY), S_OK)
      << "the value's own name is accepted";
  EXPECT_EQ(OSCL_ReadRegistryValue("K", "empty", REG_SZ, 1, nullptr), E_FAIL);
  EXPECT_EQ(OSCL_UserFeature_ReadValues(nullptr, &key_), E_FAIL);
  EXPECT_EQ(Read(std::string(256, 'n').c_str(), USER_FEATURE_STRING), E_FAIL);
  EXPECT_EQ(key_.values->name, nullptr);
}

TEST_F(UserFeatureTest, several_strings_are_written_within_their_size) {
  char text[] = "one", other[] = "second";
  UserFeatureString strings[] = {{text, 3}, {other, 6}, {nullptr, 1}, {nullptr, 0xFFFFFFFF}};
  UserFeatureValue value = {const_cast<char*>("text"), USER_FEATURE_MULTI_STRING, {}, 0, 0};
  value.data.strings = strings;
  for (value.size = 3; value.size <= 4; ++value.size) {
    EXPECT_EQ(OSCL_UserFeature_WriteValueMultiString(1, &value), E_FAIL);
    EXPECT_EQ(Stored(), kFile);
  }
  for (const auto& [size, first] : {std::pair(2u, "one"s), {0u, ""s}}) {
    Store(kFile);
    value.size = size;
    EXPECT_EQ(OSCL_UserFeature_WriteValueMultiString(1, &value), 0u);
    EXPECT_NE(Stored().find("\ttext \n\t\t\t7 \n\t\t\t" + first + " \n"), std::string::npos);
  }
}

TEST_F(UserFeatureTest, clearing_and_missing_data_keep_the_number) {
  EXPECT_EQ(Read("none", USER_FEATURE_NUMBER64_A), S_OK);
  key_.values->data.number64 = 0x100000007;
  EXPECT_EQ(OSCL_UserFeature_ClearValue(key_.values), S_OK);
  EXPECT_EQ(key_.values->name, nullptr);
  EXPECT_EQ(Read("none", USER_FEATURE_NUMBER32_A), S_OK);
  EXPECT_EQ(Read("empty", USER_FEATURE_NUMBER32_A), S_OK);
  EXPECT_EQ(key_.values->data.number64, 0x100000007u);
  EXPECT_EQ(Read("none", USER_FEATURE_MULTI_STRING), E_FAIL);
  EXPECT_EQ(key_.values->data.strings, nullptr) << "the number is not a pointer";
  EXPECT_EQ(Read("text", USER_FEATURE_MULTI_STRING), S_OK);
  EXPECT_EQ(OSCL_UserFeature_ClearValue(key_.values), S_OK);
  EXPECT_EQ(key_.values->size + key_.values->totalLength, 0u);
  EXPECT_EQ(OSCL_UserFeature_DeleteValues(&key_), S_OK);
  EXPECT_EQ(OSCL_UserFeature_Cleanup(nullptr, &key_), S_OK);
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
