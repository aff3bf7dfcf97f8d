#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <random>

#include "oscl/last_error.h"
#include "oscl/registry.h"
#include "oscl/user_feature.h"
#include "tests/oscl/registry_fixture.h"
#include "tests/oscl/registry_model.h"

namespace {

using namespace std::string_literals;

// Files that are nearly right, each from its own number alone.
class Mutator {
 public:
  explicit Mutator(uint32_t seed) : random_(seed) {}

  uint32_t Below(uint32_t limit) { return static_cast<uint32_t>(random_() % limit); }

  template <typename Choices>
  const std::string& OneOf(const Choices& choices) {
    return choices[Below(static_cast<uint32_t>(std::size(choices)))];
  }

  std::string File() {
    std::vector<std::string> lines;
    for (uint32_t key = 0; key < 1 + Below(4); ++key) AddKey(lines);
    for (uint32_t count = Below(4); count != 0; --count) MutateLine(lines);
    std::string file;
    for (const std::string& line : lines) file += line + '\n';
    for (uint32_t count = Below(3); count > 1; --count) MutateBytes(file);
    return file;
  }

 private:
  void AddKey(std::vector<std::string>& lines) {
    static const std::string kNames[] = {"HKEY_CURRENT_USER\\A", "HKEY_LOCAL_MACHINE\\B", "C",
                                         std::string(255, 'k')};
    static const std::string kIds[] = {"1", "0x2", "0x80000001", "fFfFfFfF", "0"};
    lines.insert(lines.end(), {"[KEY]", "\t" + OneOf(kIds), "\t" + OneOf(kNames)});
    for (uint32_t count = Below(4); count != 0; --count) AddValue(lines);
    if (Below(50) == 0) {
      for (uint32_t count = 40; count != 0; --count) AddValue(lines);
    }
  }

  void AddValue(std::vector<std::string>& lines) {
    static const std::string kNames[] = {"v", "w", "[VALUE]", std::string(255, 'n')};
    static const std::string kTypes[] = {"1", "4", "11"};
    static const std::string kData[] = {
        "7",    "-1",    "4294967296",          "16843009",           "text",
        "a b ", "[KEY]", std::string(127, 'd'), std::string(255, 'D')};
    lines.insert(lines.end(),
                 {"\t\t[VALUE]", "\t\t\t" + OneOf(kNames), OneOf(kTypes), "\t" + OneOf(kData)});
  }

  void MutateLine(std::vector<std::string>& lines) {
    static const std::string kLines[] = {"",
                                         " ",
                                         "[KEY]",
                                         "[VALUE]",
                                         "[KEY] ",
                                         "[VALUE]\r",
                                         "0x",
                                         "-1",
                                         "3",
                                         "1\0x"s,
                                         "\0"s,
                                         "\0 v"s,
                                         "99999999999999999999",
                                         "\v\f",
                                         "0x1 trailing",
                                         std::string(256, 'x'),
                                         std::string(255, 'y'),
                                         std::string(255, 'z') + " [VALUE]",
                                         std::string(600, '5'),
                                         "%s%n",
                                         "\xFF\xA0"};
    const uint32_t at = Below(static_cast<uint32_t>(lines.size()));
    const auto place = lines.begin() + at;
    switch (Below(6)) {
      case 0:
        if (lines.size() > 1) lines.erase(place);
        break;
      case 1:
        lines.insert(place, std::string(*place));
        break;
      case 2:
        std::swap(*place, lines[Below(static_cast<uint32_t>(lines.size()))]);
        break;
      case 3:
        lines.insert(place, OneOf(kLines));
        break;
      case 4:
        *place += OneOf(kLines);
        break;
      default:
        *place = OneOf(kLines);
    }
  }

  void MutateBytes(std::string& file) {
    const uint32_t at = Below(static_cast<uint32_t>(file.size()));
    switch (Below(3)) {
      case 0:
        file.resize(at);
        break;
      case 1:
        file[at] = static_cast<char>(Below(256));
        break;
      default:
        file.erase(at, 1);
    }
    if (file.empty()) file = "[";
  }

  std::mt19937 random_;
};

class RegistryMutationTest : public RegistryFixture {
 protected:
  // Holds every reading function against the model of the file.
  void CheckReading(const Model& model, const ModelKey& key) {
    HKEY opened = 0;
    ASSERT_EQ(RegOpenKeyEx(0, key.name.c_str(), 0, 0, &opened), 0u);
    ASSERT_EQ(opened, model.FindByName(key.name)->id);
    const bool isRoot = key.id - HKEY_CLASSES_ROOT < 4;
    const ModelKey& served = *model.FindByName(model.FindById(key.id)->name);
    for (const std::string& name : {key.values.empty() ? "" : key.values.back().name, "v"s}) {
      const ModelValue* value = served.Find(name);
      const uint32_t expected = isRoot ? 1 : value == nullptr ? 8 : 0;
      const std::size_t size = expected == 0 ? value->data.size() : 0;
      const std::unique_ptr<char[]> data(new char[size]);
      uint32_t type = 0;
      uint32_t length = 0;
      ASSERT_EQ(RegGetValue(key.id, nullptr, name.c_str(), 0, &type, data.get(), &length),
                expected);
      if (expected == 0) {
        ASSERT_EQ(type, value->type);
        ASSERT_EQ(std::string(data.get(), length), value->data);
      }
      CheckSettings(key.name.c_str(), name.c_str());
    }
  }

  void CheckSettings(const char* path, const char* name) {
    UserFeatureKey key = {0, path, nullptr, 0};
    for (uint32_t kind = 0; kind <= 9; ++kind) {
      const HRESULT result = OSCL_UserFeature_ReadValue(nullptr, &key, name, kind);
      ASSERT_TRUE(result == S_OK || result == E_FAIL) << result;
      if (kind != USER_FEATURE_MULTI_STRING || result != S_OK) continue;
      for (uint32_t i = 0; i < key.values->size; ++i) {
        ASSERT_EQ(std::strlen(key.values->data.strings[i].text),
                  key.values->data.strings[i].length);
      }
    }
    OSCL_UserFeature_DeleteValues(&key);
    const std::unique_ptr<char[]> data(new char[256]);
    const char* subPath = std::strchr(path, '\\');
    OSCL_ReadRegistryValue(subPath != nullptr ? subPath + 1 : path, name, 1, 1, data.get());
  }

  // Sets a value, and holds what a later load finds, once the blanks are gone, against the model.
  void CheckWriting(const Model& model, const ModelKey& key, Mutator& mutator) {
    static const std::string kNames[] = {"v", "added"};
    const std::string& name = mutator.OneOf(kNames);
    const std::unique_ptr<char[]> data(new char[4]{'s', 'e', 't', '\0'});
    UserFeatureValue value = {};
    value.type = 1 + mutator.Below(7);
    value.size = 4;
    if (value.type == USER_FEATURE_STRING || value.type == USER_FEATURE_BINARY) {
      value.data.string = data.get();
    } else {
      value.data.number64 = 0x100000007;
    }
    value.name = const_cast<char*>(name.c_str());
    UserFeatureKey described = {0, key.name.c_str(), &value, 1};
    const uint32_t id = model.FindByName(key.name)->id;
    const bool isRoot = id - HKEY_CLASSES_ROOT < 4;
    ASSERT_EQ(OSCL_UserFeature_WriteValues(nullptr, &described), isRoot ? 1u : 0u);
    if (isRoot) return;
    ASSERT_EQ(RegSetValueEx(id, "v", 0, 1, "x", 2), OSCL_ERROR_REG_ITEM_UNKNOWN);
    if (value.type != USER_FEATURE_BINARY && SurvivesRewriting(model)) {
      CheckRewritten(model, *model.FindByName(model.FindById(id)->name), name,
                     value.type == USER_FEATURE_STRING ? "set\0"s : "\7\0\0\0"s);
    }
  }

  void CheckRewritten(const Model& before, const ModelKey& changed, const std::string& name,
                      const std::string& data) {
    std::string file = Stored();
    for (std::size_t at = 0; (at = file.find(" \n", at)) != std::string::npos; ++at) {
      file.erase(at, 1);
    }
    Store(file);
    const Model after = ReadModel(path_);
    ASSERT_EQ(after.code, 0u);
    ASSERT_EQ(after.keys.size(), before.keys.size());
    ++roundTrips_;
    // Rewriting reorders: the file is in list order, and that order reversed but for the first.
    for (std::size_t i = 0; i < before.keys.size(); ++i) {
      const ModelKey& was = before.keys[i];
      const ModelKey& is = after.keys[i == 0 ? 0 : before.keys.size() - i];
      ASSERT_EQ(is.id, was.id);
      ASSERT_EQ(is.name, was.name);
      const bool added = &was == &changed && was.Find(name) == nullptr;
      ASSERT_EQ(is.values.size(), was.values.size() + (added ? 1 : 0));
      for (std::size_t j = 0; j < was.values.size(); ++j) {
        const bool set = &was == &changed && &was.values[j] == was.Find(name);
        ASSERT_EQ(is.values[j].data, set ? data : was.values[j].data);
      }
      ASSERT_TRUE(!added || is.values.back().data == data);
    }
  }

  // An empty line, or one that is not there, shifts those behind it; so do blanks that cannot be
  // told from the writer's, and ends that push a line over the reader's limit.
  static bool SurvivesRewriting(const Model& model) {
    for (const ModelKey& key : model.keys) {
      if (key.name.empty()) return false;
      for (const ModelValue& value : key.values) {
        if (value.name.empty() || value.data.empty() || value.data[0] == '\0') {
          if (value.type == 1 || value.name.empty() || value.data.empty()) return false;
        }
      }
    }
    return true;
  }

  uint32_t roundTrips_ = 0;
};

// KALODLL_MUTATIONS sets how many files are tried, KALODLL_MUTATION_SEED the first one's number.
uint32_t Setting(const char* name, uint32_t otherwise) {
  const char* text = std::getenv(name);
  return text != nullptr ? static_cast<uint32_t>(std::strtoul(text, nullptr, 10)) : otherwise;
}

TEST_F(RegistryMutationTest, nearly_right_files_do_no_harm_and_read_as_scanf_reads_them) {
  const uint32_t files = Setting("KALODLL_MUTATIONS", 30000);
  const uint32_t seed = Setting("KALODLL_MUTATION_SEED", 1);
  std::map<uint32_t, uint32_t> outcomes;
  const int32_t blocks = gAllocationCount;
  for (uint32_t number = seed; number != seed + files; ++number) {
    Mutator mutator(number);
    const std::string file = mutator.File();
    SCOPED_TRACE("file " + std::to_string(number) + ":\n" + testing::PrintToString(file));
    Store(file);
    const Model model = ReadModel(path_);
    ++outcomes[model.code];
    HKEY opened = 0;
    const uint32_t absent = model.code != 0 ? model.code : 15;
    ASSERT_EQ(RegOpenKeyExA(HKEY_USERS, "absent", 0, 0, &opened), absent);
    if (model.code != 0) {
      ASSERT_EQ(RegGetValue(1, nullptr, "v", 0, nullptr, nullptr, nullptr), model.code);
      ASSERT_EQ(RegSetValueEx(1, "v", 0, 1, "x", 2), model.code);
      ASSERT_EQ(Stored(), file);
    } else if (!model.keys.empty()) {
      const ModelKey& key = model.keys[mutator.Below(static_cast<uint32_t>(model.keys.size()))];
      CheckReading(model, key);
      CheckWriting(model, key, mutator);
    }
    ASSERT_FALSE(HasFatalFailure());
    ASSERT_EQ(gAllocationCount, blocks);
  }
  std::string figures;
  for (const auto& [code, count] : outcomes) {
    figures += std::to_string(count) + " with code " + std::to_string(code) + ", ";
  }
  std::cout << files << " files: " << figures << roundTrips_ << " round trips" << std::endl;
  for (const uint32_t code : {0u, 12u, 13u}) EXPECT_GT(outcomes[code], files / 50) << code;
  EXPECT_GT(roundTrips_, files / 10);
}

}  // namespace
