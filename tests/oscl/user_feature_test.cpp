#include <fcntl.h>

#include <cstring>
#include <tuple>

#include "oscl/registry.h"
#include "oscl/user_feature.h"
#include "tests/oscl/registry_fixture.h"

namespace {

const char kFile[] =
    "[KEY]\n1\nHKEY_CURRENT_USER\\K\n[VALUE]\ntext\n1\nhello\n[VALUE]\nnumber\n4\n-7\n"
    "[VALUE]\none\n4\n1\n[VALUE]\nempty\n1\n";

class UserFeatureTest : public RegistryFixture {
 protected:
  UserFeatureTest() { Store(kFile); }
  ~UserFeatureTest() override { OSCL_UserFeature_Cleanup(nullptr, &key_); }

  HRESULT Read(const char* name, uint32_t kind) {
    return OSCL_UserFeature_ReadValue(nullptr, &key_, name, kind);
  }

  UserFeatureKey key_ = {1, "K", nullptr, 0};
};

TEST_F(UserFeatureTest, full_paths_are_split_behind_the_root) {
  const std::pair<const char*, uint32_t> cases[] = {
      {"HKEY_LOCAL_MACHINE", 0},    {"HKEY_LOCAL_MACHINE\\", 0},   {"\\a", 0},
      {"HKEY_USERS\\a", 0},         {"HKEY_LOCAL_MACHINES\\a", 0}, {"hkey_current_user\\a", 0},
      {"HKEY_LOCAL_MACHINE\\a", 2}, {"HKEY_CURRENT_USER\\\\b", 1}};
  for (const auto& [path, expected] : cases) {
    uint32_t root = 0;
    char* sub = nullptr;
    const HRESULT result = OSCL_UserFeature_ParsePath(nullptr, path, &root, &sub);
    EXPECT_EQ(result, expected != 0 ? S_OK : E_FAIL) << path;
    EXPECT_EQ(root, expected) << path;
    EXPECT_EQ(sub, expected != 0 ? std::strchr(path, '\\') + 1 : nullptr) << path;
  }
}

TEST_F(UserFeatureTest, one_value_is_read_by_its_kind) {
  EXPECT_EQ(Read("text", USER_FEATURE_STRING), S_OK);
  EXPECT_STREQ(key_.values->data.string, "hello");
  EXPECT_EQ(Read(key_.values->name, USER_FEATURE_BINARY), S_OK) << "its own name will do";
  EXPECT_STREQ(key_.values->name, "text");
  EXPECT_EQ(Read("absent", USER_FEATURE_MULTI_STRING), E_FAIL);
  EXPECT_EQ(Read("empty", USER_FEATURE_STRING), S_OK);
  ASSERT_NE(key_.values->data.string, nullptr) << "there, but without data";
  EXPECT_EQ(key_.values->size + key_.values->data.string[0], 0u);
  EXPECT_EQ(OSCL_ReadRegistryValue("K", "empty", REG_SZ, 1, key_.values->data.string), E_FAIL);
  EXPECT_EQ(Read("text", 9), E_FAIL);
  EXPECT_EQ(OSCL_UserFeature_ReadValues(nullptr, &key_), E_FAIL);
  EXPECT_EQ(Read(std::string(256, 'n').c_str(), USER_FEATURE_STRING), E_FAIL);
  EXPECT_EQ(key_.values->name, nullptr);
  key_.path = "Other";
  EXPECT_EQ(Read("text", USER_FEATURE_STRING), OSCL_ERROR_REG_ID_NOT_FOUND);
}

TEST_F(UserFeatureTest, multi_strings_are_split_within_their_length) {
  EXPECT_EQ(Read("text", USER_FEATURE_MULTI_STRING), S_OK);
  EXPECT_EQ(Read("one", USER_FEATURE_MULTI_STRING), E_FAIL);
  const std::tuple<const char*, uint32_t, uint32_t> cases[] = {
      {"a\0bc\0", 6, 2}, {"a\0bc", 5, 2}, {"a\0b\0\0c", 7, 0}, {"\0\0", 2, 0},
      {"a", 1, 0},       {"a\0bc", 4, 0}, {"a", 0, 0},         {"a\0b\0", 3, 1}};
  for (const auto& [bytes, length, strings] : cases) {
    SCOPED_TRACE(testing::PrintToString(std::string(bytes, length)));
    auto* buffer = static_cast<char*>(std::memcpy(AllocMem(length), bytes, length));
    UserFeatureValue value = {nullptr, USER_FEATURE_MULTI_STRING, {}, 0, 0};
    EXPECT_EQ(OSCL_UserFeature_SetMultiStringValue(&value, buffer, length),
              strings != 0 ? S_OK : E_FAIL);
    ASSERT_EQ(value.size, strings);
    if (strings == 0) {
      FreeMem(buffer);
      continue;
    }
    const UserFeatureString& last = value.data.strings[strings - 1];
    EXPECT_EQ(last.text, buffer + 2 * (strings - 1));
    EXPECT_EQ(last.length, std::strlen(last.text));
    EXPECT_EQ(value.totalLength, 2 * (strings - 1) + 1 + last.length);
    OSCL_UserFeature_ClearValue(&value);
    OSCL_UserFeature_ClearValue(&value);
  }
}

TEST_F(UserFeatureTest, names_have_at_most_255_characters) {
  key_.valueCount = 2;
  key_.values = static_cast<UserFeatureValue*>(AllocAndZeroMem(2 * sizeof(UserFeatureValue)));
  UserFeatureValue& value = key_.values[1];
  EXPECT_EQ(OSCL_UserFeature_SetValueName(&value, std::string(256, 'n').c_str()), E_FAIL);
  EXPECT_EQ(OSCL_UserFeature_SetValueName(&value, std::string(255, 'n').c_str()), S_OK);
  EXPECT_EQ(OSCL_UserFeature_SetValueName(&value, value.name + 250), S_OK);
  EXPECT_EQ(OSCL_UserFeature_ReadValueInit(&key_, value.name, 3), S_OK);
  EXPECT_EQ(key_.valueCount, 1u);
  EXPECT_STREQ(key_.values->name, "nnnnn");
}

TEST_F(UserFeatureTest, strings_are_written_as_far_as_they_go) {
  char text[] = "ab";
  UserFeatureString strings[] = {{text, 2}, {nullptr, 1}, {nullptr, 0xFFFFFFFF}};
  UserFeatureValue value = {const_cast<char*>("text"), USER_FEATURE_MULTI_STRING, {}, 0, 0};
  for (const uint32_t count : {2u, 3u}) {
    value.data.strings = strings;
    value.size = count;
    EXPECT_EQ(OSCL_UserFeature_WriteValueMultiString(1, &value), E_FAIL);
    EXPECT_EQ(Stored(), kFile);
  }
  value.size = 0;
  EXPECT_EQ(OSCL_UserFeature_WriteValueMultiString(1, &value), 0u);
  EXPECT_NE(Stored().find("\ttext \n\t\t\t7 \n\t\t\t \n"), std::string::npos) << "a single NUL";
}

TEST_F(UserFeatureTest, a_watch_starts_again_and_its_end_closes_descriptor_1) {
  UserFeatureNotifyKey watch = {1, "K", 1, nullptr};
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(OSCL_UserFeature_EnableNotification(nullptr, &watch), S_OK);
    EXPECT_EQ(watch.changed, 0u);
  }
  EXPECT_EQ(watch.notifyData->key, 1u);
  OSCL_UserFeature_RegistryCallback(&watch, 0);
  EXPECT_EQ(watch.changed, 1u);
  for (const bool watched : {true, false}) {
    const int output = dup(1);
    EXPECT_EQ(OSCL_UserFeature_DisableNotification(nullptr, &watch), S_OK);
    EXPECT_EQ(fcntl(1, F_GETFD) == -1, watched) << "without a watch nothing is closed";
    dup2(output, 1);
    close(output);
  }
  EXPECT_EQ(watch.notifyData, nullptr);
}

}  // namespace
