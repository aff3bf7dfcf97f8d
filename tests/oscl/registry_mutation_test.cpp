#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <random>
#include <string_view>

#include "oscl/registry.h"
#include "oscl/user_feature.h"
#include "tests/oscl/registry_fixture.h"
#include "tests/oscl/registry_model.h"

namespace {

// Files that are nearly right, each from its own number alone.
class Mutator {
 public:
  explicit Mutator(uint32_t number) : random_(number * 2654435761u + 1) {}

  uint32_t Below(std::size_t limit) { return static_cast<uint32_t>(random_() % limit); }

  std::string File() {
    for (uint32_t count = 1 + Below(4); count != 0; --count) AddKey();
    for (uint32_t count = Below(3); count != 0; --count) MutateLine();
    std::string file;
    for (const std::string& line : lines_) file += line + '\n';
    const uint32_t at = Below(file.size());
    if (Below(4) == 0) file.replace(at, 1, Below(2), static_cast<char>(Below(256)));
    if (Below(8) == 0) file.resize(at + 1);
    return file;
  }

 private:
  using Choices = std::initializer_list<std::string_view>;

  std::string OneOf(Choices choices) { return std::string(choices.begin()[Below(choices.size())]); }

  // One of the choices, or a line about as long as the reader takes.
  std::string OneOfOrLong(Choices choices) {
    if (Below(25) != 0) return OneOf(choices);
    const std::size_t length = Below(3) == 0 ? 127 : 253 + Below(4);
    return std::string(length, "x5 "[Below(3)]) + OneOf({"", " [VALUE]"});
  }

  void AddKey() {
    const std::string id = OneOf({"1", "0x2", "0x80000001", "fFfFfFfF", "0"});
    const std::string name = OneOfOrLong({"HKEY_CURRENT_USER\\A", "HKEY_LOCAL_MACHINE\\B",
                                          "HKEY_USERS\\a", "HKEY_CLASSES_ROOT\\", "C"});
    lines_.insert(lines_.end(), {"[KEY]", "\t" + id, "\t" + name});
    for (uint32_t count = Below(50) == 0 ? 40 : Below(4); count != 0; --count) {
      const std::string value = OneOfOrLong({"v", "w", "[VALUE]"});
      const std::string data =
          OneOfOrLong({"7", "-1", "4294967296", "16843009", "text", "a b ", "[KEY]"});
      lines_.insert(lines_.end(), {"\t\t[VALUE]", value, OneOf({"1", "4", "11"}), "\t" + data});
    }
  }

  void MutateLine() {
    using namespace std::string_view_literals;
    const std::string other = OneOfOrLong(
        {"", " ", "[KEY]", "[VALUE]", "[KEY] ", "[VALUE]\r", "0x", "-1", "3", "1\0x"sv, "\0"sv,
         "\0 v"sv, "99999999999999999999", "\v\f", "0x1 trailing", "%s%n", "\xFF\xA0"});
    const auto place = lines_.begin() + Below(lines_.size());
    const uint32_t how = Below(6);
    if (how == 0) std::swap(*place, lines_[Below(lines_.size())]);
    if (how == 1) *place += other;
    if (how == 2) *place = other;
    if (how == 3) lines_.insert(place, other);
    if (how == 4) lines_.insert(place, std::string(*place));
    if (how == 5 && lines_.size() > 1) lines_.erase(place);
  }

  std::minstd_rand random_;
  std::vector<std::string> lines_;
};

// What becomes of a model's file when it is rewritten.
std::string Rewritten(const Model& model) {
  std::string file;
  for (const ModelKey& key : model.keys) {
    char id[16];
    std::snprintf(id, sizeof(id), "\t0x%08x \n", key.id);
    file += std::string("[KEY] \n") + id + "\t" + key.name + " \n";
    for (const ModelValue& value : key.values) {
      file += "\t\t[VALUE] \n\t\t\t" + value.name + (value.name.empty() ? "" : " \n\t\t\t");
      file += std::to_string(value.type) + " \n";
      const bool isNumber = value.type == REG_DWORD || value.type == REG_QWORD;
      int32_t number = 0;
      value.data.copy(reinterpret_cast<char*>(&number), sizeof(number));
      const std::string text = isNumber ? std::to_string(number) : value.data.c_str();
      if (!value.data.empty()) file += "\t\t\t" + text + " \n";
    }
  }
  return file;
}

class RegistryMutationTest : public RegistryFixture {
 protected:
  // The code of looking for a value, and the value.
  static std::pair<uint32_t, const ModelValue*> Look(const Model& model, uint32_t id,
                                                     const std::string& subKey, const char* name) {
    if (id - HKEY_CLASSES_ROOT < 4) return {1, nullptr};
    if (model.code != 0 || name == nullptr) return {model.code != 0 ? model.code : 2, nullptr};
    const ModelKey* named = model.FindById(id);
    const ModelKey* key = model.FindByName((named != nullptr ? named->name : "") + subKey);
    const ModelValue* value = key != nullptr ? key->Find(name) : nullptr;
    return {key == nullptr ? 7 : value == nullptr ? 8 : 0, value};
  }

  void CheckOpening(const Model& model, const std::string& name) {
    for (const auto& [handle, prefix] : {std::pair(77u, std::string()),
                                         {HKEY_CLASSES_ROOT, "HKEY_CLASSES_ROOT\\"},
                                         {HKEY_CURRENT_USER, "HKEY_CURRENT_USER\\"},
                                         {HKEY_LOCAL_MACHINE, "HKEY_LOCAL_MACHINE\\"},
                                         {HKEY_USERS, "HKEY_USERS\\"}}) {
      if (name.compare(0, prefix.size(), prefix) != 0) continue;
      // A sub-key without room is refused as a whole.
      const ModelKey* key = model.FindByName(name.size() < 256 ? name : prefix);
      const uint32_t code = model.code != 0 ? model.code : key == nullptr ? 15 : 0;
      HKEY opened = 0;
      ASSERT_EQ(RegOpenKeyExA(handle, &name[prefix.size()], 0, 0, &opened), code);
      ASSERT_EQ(opened, code == 0 ? key->id : 0);
    }
  }

  void CheckReading(const Model& model, uint32_t id, const char* subKey, const char* name) {
    const auto [code, value] = Look(model, id, subKey != nullptr ? subKey : "", name);
    const std::unique_ptr<char[]> data(new char[value != nullptr ? value->data.size() : 0]);
    uint32_t type = 0;
    uint32_t size = 0;
    ASSERT_EQ(RegGetValue(id, subKey, name, 0, &type, data.get(), &size), code);
    ASSERT_EQ(GetLastError(), code);
    if (value == nullptr) return;
    ASSERT_EQ(type, value->type);
    ASSERT_EQ(std::string(data.get(), size), value->data);
  }

  void CheckSetting(const ModelValue* value, const ModelKey& key, const char* name, uint32_t kind) {
    const std::string data = value != nullptr ? value->data : "";
    if (key.name.rfind("HKEY_CURRENT_USER\\", 0) == 0) {
      const std::unique_ptr<char[]> read(new char[data.size()]);
      const bool good = !data.empty() && value->type == kind;
      ASSERT_EQ(OSCL_ReadRegistryValue(&key.name[18], name, kind, 1, read.get()),
                good ? S_OK : E_FAIL);
      ASSERT_EQ(std::string(read.get(), data.size()), data);
    }
    UserFeatureKey setting = {0, key.name.c_str(), nullptr, 0};
    const HRESULT result = OSCL_UserFeature_ReadValue(nullptr, &setting, name, kind);
    const UserFeatureValue& read = *setting.values;
    uint64_t number = 0;
    if (kind == USER_FEATURE_STRING || kind == USER_FEATURE_BINARY) {
      ASSERT_EQ(read.data.binary != nullptr, value != nullptr);
      ASSERT_EQ(std::string(value != nullptr ? read.data.string : "", read.size), data);
    } else if (kind > USER_FEATURE_BINARY && kind < USER_FEATURE_STRING) {
      data.copy(reinterpret_cast<char*>(&number), kind % 2 == 0 ? 4 : 8);
      ASSERT_EQ(read.data.number64, number);
    }
    const bool good = kind > 0 && kind <= USER_FEATURE_STRING;
    ASSERT_TRUE(result == (good ? S_OK : E_FAIL) || kind == USER_FEATURE_MULTI_STRING) << result;
    OSCL_UserFeature_DeleteValues(&setting);
  }

  // Sets a value, and holds the whole file against what the model says it becomes.
  void CheckWriting(Model model, uint32_t id, const char* path, const char* name, uint32_t kind) {
    static constexpr uint32_t kTypes[] = {0, 3, 4, 11, 4, 11, 4, 1, 7, 0};
    const std::unique_ptr<char[]> text(new char[4]{'s', 'e', 't', '\0'});
    UserFeatureString string = {text.get(), 3};
    UserFeatureValue value = {const_cast<char*>(name), kind, {}, kind == 8 ? 1u : 4u, 0};
    ModelValue written = {name, kTypes[kind], kTypes[kind] == 0 ? "" : "set"};
    value.data.binary = kind == 8 ? static_cast<void*>(&string) : text.get();
    if (kTypes[kind] % 7 == 4) {
      value.data.number64 = 0x100000007;
      written.data = std::string("\7\0\0\0", 4);
    }
    UserFeatureValue values[] = {value, value};
    UserFeatureKey setting = {0, path, values, 1 + rewritten_ % 2};
    // Of two values the second finds a file that does not load.
    const uint32_t code = setting.valueCount == 1 ? 0 : OSCL_ERROR_REG_ITEM_UNKNOWN;
    ASSERT_EQ(OSCL_UserFeature_WriteValues(nullptr, &setting), code);
    auto* key = const_cast<ModelKey*>(model.FindByName(model.FindById(id)->name));
    auto* changed = const_cast<ModelValue*>(key->Find(name));
    if (changed == nullptr) changed = &key->values.emplace_back();
    *changed = written;
    ASSERT_EQ(Stored(), Rewritten(model));
    ++rewritten_;
  }

  void CheckFile(const Model& model, const std::string& file, Mutator& mutator) {
    ModelKey key;
    if (!model.keys.empty()) key = model.keys[mutator.Below(model.keys.size())];
    const ModelKey* first = model.code == 0 ? model.FindByName(key.name) : nullptr;
    CheckOpening(model, key.name);
    CheckOpening(model, mutator.Below(2) == 0 ? key.name + " " : key.name.substr(0, 20));
    const std::string last = key.values.empty() ? "w" : key.values.back().name;
    for (const char* name : {last.c_str(), "v", static_cast<const char*>(nullptr)}) {
      const uint32_t ids[] = {key.id, 99, HKEY_CLASSES_ROOT + mutator.Below(4)};
      const uint32_t id = ids[mutator.Below(3)];
      CheckReading(model, id, mutator.Below(2) == 0 ? nullptr : key.name.c_str(), name);
      const uint32_t code = Look(model, id, "", name).first;
      ASSERT_TRUE(code == 0 || code == 8 || RegSetValueEx(id, name, 0, 1, "x", 2) == code);
    }
    ASSERT_EQ(Stored(), file);
    if (first == nullptr) return;
    for (const char* name : {last.c_str(), "v"}) {
      CheckSetting(Look(model, first->id, "", name).second, *first, name, mutator.Below(12));
    }
    if (Look(model, first->id, "", "v").first == 1) return;
    const char* name = mutator.Below(2) == 0 ? "v" : "added";
    CheckWriting(model, first->id, key.name.c_str(), name, mutator.Below(10));
  }

  uint32_t rewritten_ = 0;
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
  for (uint32_t number = seed; number != seed + files; ++number) {
    Mutator mutator(number);
    const std::string file = mutator.File();
    Store(file);
    const Model model = ReadModel(path_);
    ++outcomes[model.code];
    CheckFile(model, file, mutator);
    ASSERT_FALSE(HasFailure()) << "file " << number << ":\n" << testing::PrintToString(file);
  }
  for (const uint32_t code : {0u, 12u, 13u}) {
    std::cout << outcomes[code] << " files with code " << code << ", ";
    EXPECT_GT(outcomes[code], files / 50) << code;
  }
  std::cout << rewritten_ << " rewritten" << std::endl;
  EXPECT_GT(rewritten_, files / 10);
}

}  // namespace
