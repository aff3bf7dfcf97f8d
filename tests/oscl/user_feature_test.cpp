#include <fcntl.h>

#include <cstring>
#include <memory>

#include "oscl/last_error.h"
#include "oscl/registry.h"
#include "oscl/user_feature.h"
#include "tests/oscl/registry_fixture.h"

namespace {

const char kFile[] =
    "[KEY]\n1\nHKEY_CURRENT_USER\\K\n"
    "[VALUE]\ntext\n1\nhello\n[VALUE]\nnumber\n4\n-7\n[VALUE]\nwide\n11\n7\n"
    "[VALUE]\none\n4\n1\n[VALUE]\nnoEnd\n4\n16843009\n[VALUE]\nempty\n1\n";

class UserFeatureTest : public RegistryFixture {
 protected:
  void SetUp() override {
    RegistryFixture::SetUp();
    Store(kFile);
    key_.rootType = 1;
    key_.path = "K";
  }
  void TearDown() override {
    OSCL_UserFeature_Cleanup(nullptr, &key_);
    EXPECT_EQ(key_.values, nullptr);
    RegistryFixture::TearDown();
  }
  HRESULT Read(const char* name, uint32_t kind) {
    return OSCL_UserFeature_ReadValue(nullptr, &key_, name, kind);
  }
  // A list of as many named values, without data.
  void MakeList(std::initializer_list<const char*> names) {
    OSCL_UserFeature_DeleteValues(&key_);
    key_.valueCount = static_cast<uint32_t>(names.size());
    key_.values =
        static_cast<UserFeatureValue*>(AllocAndZeroMem(names.size() * sizeof(UserFeatureValue)));
    UserFeatureValue* value = key_.values;
    for (const char* name : names) EXPECT_EQ(OSCL_UserFeature_SetValueName(value++, name), S_OK);
  }
  static char* Block(const char* bytes, std::size_t size) {
    return static_cast<char*>(std::memcpy(AllocMem(size), bytes, size));
  }

  UserFeatureKey key_ = {};
};

TEST_F(UserFeatureTest, full_paths_are_split_behind_the_root) {
  uint32_t root = 9;
  char* sub = nullptr;
  const auto parse = [&](const char* path) {
    return OSCL_UserFeature_ParsePath(nullptr, path, &root, &sub);
  };
  for (const char* path : {"HKEY_LOCAL_MACHINE", "HKEY_LOCAL_MACHINE\\", "\\a", "", "HKEY_USERS\\a",
                           "HKEY_LOCAL_MACHINES\\a", "hkey_current_user\\a"}) {
    EXPECT_EQ(parse(path), E_FAIL) << path;
  }
  EXPECT_EQ(root, 9u);
  const char machine[] = "HKEY_LOCAL_MACHINE\\a";
  EXPECT_EQ(parse(machine), S_OK);
  EXPECT_EQ(root, 2u);
  EXPECT_EQ(sub, machine + 19);
  EXPECT_EQ(parse("HKEY_CURRENT_USER\\\\b"), S_OK);
  EXPECT_EQ(root, 1u);
  EXPECT_STREQ(sub, "\\b");
}

TEST_F(UserFeatureTest, one_value_is_read_by_its_kind) {
  EXPECT_EQ(Read("text", USER_FEATURE_STRING), S_OK);
  ASSERT_EQ(key_.valueCount, 1u);
  EXPECT_STREQ(key_.values->data.string, "hello");
  EXPECT_EQ(key_.values->size, 6u);
  EXPECT_EQ(Read(key_.values->name, USER_FEATURE_BINARY), S_OK) << "its own name will do";
  EXPECT_STREQ(key_.values->name, "text");
  EXPECT_EQ(key_.values->size, 6u);
  EXPECT_EQ(Read("number", USER_FEATURE_NUMBER32_B), S_OK);
  EXPECT_EQ(key_.values->data.number64, 0xFFFFFFF9u);
  EXPECT_EQ(Read("wide", USER_FEATURE_NUMBER64_A), S_OK);
  EXPECT_EQ(key_.values->data.number64, 7u);
  EXPECT_EQ(Read("text", USER_FEATURE_NUMBER64_B), S_OK);
  EXPECT_EQ(std::memcmp(&key_.values->data, "hello\0\0\0", 8), 0) << "no more than 8 bytes";
  EXPECT_EQ(Read("text", USER_FEATURE_NUMBER32_A), S_OK);
  EXPECT_EQ(std::memcmp(&key_.values->data, "hell\0\0\0\0", 8), 0);
  EXPECT_EQ(Read("text", 9), E_FAIL);
  EXPECT_EQ(OSCL_UserFeature_ReadValues(nullptr, &key_), E_FAIL);
}

TEST_F(UserFeatureTest, absent_values_read_as_nothing_except_multi_strings) {
  for (uint32_t kind : {USER_FEATURE_STRING, USER_FEATURE_BINARY, USER_FEATURE_NUMBER32_C}) {
    EXPECT_EQ(Read("absent", kind), S_OK);
    EXPECT_EQ(key_.values->data.number64, 0u);
  }
  EXPECT_EQ(Read("absent", USER_FEATURE_MULTI_STRING), E_FAIL);
  EXPECT_EQ(Read("empty", USER_FEATURE_STRING), S_OK);
  ASSERT_NE(key_.values->data.string, nullptr) << "there, but without data";
  EXPECT_STREQ(key_.values->data.string, "");
  EXPECT_EQ(key_.values->size, 0u);
  key_.path = "Other";
  EXPECT_EQ(Read("text", USER_FEATURE_STRING), OSCL_ERROR_REG_ID_NOT_FOUND);
  Store("junk");
  EXPECT_EQ(Read("text", USER_FEATURE_STRING), OSCL_ERROR_REG_ITEM_UNKNOWN);
}

TEST_F(UserFeatureTest, multi_strings_are_split_within_their_length) {
  EXPECT_EQ(Read("text", USER_FEATURE_MULTI_STRING), S_OK);
  ASSERT_EQ(key_.values->size, 1u);
  EXPECT_STREQ(key_.values->data.strings[0].text, "hello");
  for (const char* broken : {"one", "noEnd", "empty"}) {
    EXPECT_EQ(Read(broken, USER_FEATURE_MULTI_STRING), E_FAIL) << broken;
    EXPECT_EQ(key_.values->data.strings, nullptr);
  }
  const struct {
    const char* bytes;
    uint32_t length;
    uint32_t strings;
  } cases[] = {{"a\0bc\0", 6, 2}, {"a\0bc", 5, 2},    {"a\0b\0\0c", 7, 0}, {"\0\0", 2, 0},
               {"a", 1, 0},       {"a\0bc", 4, 0},    {"\0", 1, 0},        {"a", 0, 0},
               {"a\0\0\0", 4, 0}, {"a\0b\0\0", 5, 2}, {"a\0b\0", 3, 1}};
  for (const auto& [bytes, length, strings] : cases) {
    SCOPED_TRACE(testing::PrintToString(std::string(bytes, length)));
    char* buffer = Block(bytes, length);
    UserFeatureValue value = {};
    value.type = USER_FEATURE_MULTI_STRING;
    EXPECT_EQ(OSCL_UserFeature_SetMultiStringValue(&value, buffer, length),
              strings != 0 ? S_OK : E_FAIL);
    ASSERT_EQ(value.size, strings);
    if (strings == 0) {
      FreeMem(buffer);
      continue;
    }
    EXPECT_STREQ(value.data.strings[strings - 1].text, buffer + 2 * (strings - 1));
    EXPECT_EQ(value.totalLength, 2 * (strings - 1) + 1 + value.data.strings[strings - 1].length);
    OSCL_UserFeature_ClearValue(&value);
    EXPECT_EQ(value.data.strings, nullptr);
    OSCL_UserFeature_ClearValue(&value);
  }
}

TEST_F(UserFeatureTest, names_have_at_most_255_characters) {
  const std::string longest(255, 'n');
  UserFeatureValue value = {};
  EXPECT_EQ(OSCL_UserFeature_SetValueName(&value, (longest + "n").c_str()), E_FAIL);
  EXPECT_EQ(value.name, nullptr);
  EXPECT_EQ(OSCL_UserFeature_SetValueName(&value, longest.c_str()), S_OK);
  EXPECT_EQ(OSCL_UserFeature_SetValueName(&value, value.name + 250), S_OK);
  EXPECT_STREQ(value.name, "nnnnn");
  OSCL_UserFeature_ClearValue(&value);
  EXPECT_EQ(Read((longest + "n").c_str(), USER_FEATURE_STRING), E_FAIL);
  ASSERT_EQ(key_.valueCount, 1u);
  EXPECT_EQ(key_.values->name, nullptr);
  EXPECT_EQ(key_.values->type, uint32_t{USER_FEATURE_STRING});
  MakeList({"a", "b"});
  EXPECT_EQ(OSCL_UserFeature_ReadValueInit(&key_, key_.values[1].name, 3), S_OK);
  EXPECT_EQ(key_.valueCount, 1u);
  EXPECT_STREQ(key_.values->name, "b");
}

TEST_F(UserFeatureTest, the_second_value_of_a_list_is_not_written) {
  MakeList({"first", "second"});
  key_.values[0].type = USER_FEATURE_NUMBER64_A;
  key_.values[0].data.number64 = 0x100000005;
  key_.values[1].type = USER_FEATURE_NUMBER32_A;
  EXPECT_EQ(OSCL_UserFeature_WriteValues(nullptr, &key_), OSCL_ERROR_REG_ITEM_UNKNOWN);
  EXPECT_NE(Stored().find("\t\t\tfirst \n\t\t\t11 \n\t\t\t5 \n"), std::string::npos);
  EXPECT_EQ(Stored().find("second"), std::string::npos);
}

TEST_F(UserFeatureTest, each_kind_is_written_as_its_registry_type) {
  const auto written = [&](uint32_t kind, UserFeatureData data, uint32_t size) {
    Store("[KEY]\n1\nHKEY_CURRENT_USER\\K\n");
    UserFeatureValue value = {const_cast<char*>("v"), kind, data, size, 0};
    UserFeatureKey key = {1, "K", &value, 1};
    const HRESULT result = OSCL_UserFeature_WriteValues(nullptr, &key);
    if (result != S_OK) return std::to_string(result);
    const std::string stored = Stored();
    return stored.substr(stored.find("\tv \n") + 4);
  };
  UserFeatureData data = {};
  EXPECT_EQ(written(USER_FEATURE_MULTI_STRING, data, 0), "\t\t\t7 \n\t\t\t \n") << "a single NUL";
  EXPECT_EQ(written(9, data, 8), "\t\t\t0 \n");
  EXPECT_EQ(written(USER_FEATURE_STRING, data, 0), "\t\t\t1 \n");
  UserFeatureString strings[] = {{const_cast<char*>("ab"), 2}, {const_cast<char*>("c"), 1}};
  data.strings = strings;
  EXPECT_EQ(written(USER_FEATURE_MULTI_STRING, data, 2), "\t\t\t7 \n\t\t\tab \n");
  strings[1].text = nullptr;
  EXPECT_EQ(written(USER_FEATURE_MULTI_STRING, data, 2), std::to_string(E_FAIL));
  strings[0].length = strings[1].length = 0xFFFFFFFF;
  EXPECT_EQ(written(USER_FEATURE_MULTI_STRING, data, 2), std::to_string(E_FAIL));
  data.string = const_cast<char*>("text");
  EXPECT_EQ(written(USER_FEATURE_STRING, data, 5), "\t\t\t1 \n\t\t\ttext \n");
  EXPECT_EQ(written(USER_FEATURE_BINARY, data, 2), "\t\t\t3 \n\t\t\tte \n");
  data.number64 = 0xFFFFFFFF;
  EXPECT_EQ(written(USER_FEATURE_NUMBER32_C, data, 0), "\t\t\t4 \n\t\t\t-1 \n");
}

TEST_F(UserFeatureTest, a_watch_starts_again_and_its_end_closes_descriptor_1) {
  UserFeatureNotifyKey watch = {1, "Other", 1, nullptr};
  EXPECT_EQ(OSCL_UserFeature_EnableNotification(nullptr, &watch), OSCL_ERROR_REG_ID_NOT_FOUND);
  EXPECT_EQ(watch.changed, 0u);
  watch.path = "K";
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(OSCL_UserFeature_EnableNotification(nullptr, &watch), S_OK);
  }
  ASSERT_NE(watch.notifyData, nullptr);
  EXPECT_EQ(watch.notifyData->key, 1u);
  OSCL_UserFeature_RegistryCallback(&watch, 0);
  EXPECT_EQ(watch.changed, 1u);
  const int output = dup(1);
  EXPECT_EQ(OSCL_UserFeature_DisableNotification(nullptr, &watch), S_OK);
  EXPECT_EQ(fcntl(1, F_GETFD), -1);
  dup2(output, 1);
  close(output);
  EXPECT_EQ(watch.notifyData, nullptr);
  EXPECT_EQ(OSCL_UserFeature_DisableNotification(nullptr, &watch), S_OK);
  EXPECT_NE(fcntl(1, F_GETFD), -1) << "without a watch nothing is closed";
}

TEST_F(UserFeatureTest, a_registry_value_is_read_with_its_type) {
  const std::unique_ptr<char[]> data(new char[6]);
  const auto read = [&](const char* path, const char* name, uint32_t type) {
    return OSCL_ReadRegistryValue(path, name, type, 1, data.get());
  };
  EXPECT_EQ(read("K", "text", REG_SZ), S_OK);
  EXPECT_STREQ(data.get(), "hello");
  EXPECT_EQ(read("K", "number", REG_DWORD), S_OK);
  EXPECT_EQ(read("K", "number", REG_SZ), E_FAIL);
  EXPECT_EQ(read("K", "empty", REG_SZ), E_FAIL) << "no data";
  EXPECT_EQ(read("K", "absent", REG_SZ), E_FAIL);
  EXPECT_EQ(read("Other", "text", REG_SZ), E_FAIL);
}

}  // namespace
