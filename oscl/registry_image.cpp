#include "oscl/registry_image.h"

#include <sys/stat.h>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <memory>

#include "oscl/bounded_string.h"
#include "oscl/last_error.h"

namespace oscl {

namespace {

constexpr char kKeyMark[] = "[KEY]";
constexpr char kValueMark[] = "[VALUE]";

struct CloseFile {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, CloseFile>;

File Open(const char* mode, uint32_t code) {
  std::FILE* file = nullptr;
  fopen_s(&file, "/etc/vrel_registry.txt", mode);
  if (file == nullptr) throw RegistryFailure(code);
  return File(file);
}

// Reads the file with one read call, so that it sees a simultaneous rewrite completely or not at
// all, if the system separates reads from writes. Returns false if the file was truncated
// meanwhile. A file without a size, or one that grows, takes more reads.
bool ReadWhole(std::string& block) {
  const File file = Open("r", OSCL_ERROR_REG_FILE_UNREADABLE);
  std::setvbuf(file.get(), nullptr, _IONBF, 0);
  struct stat status;
  const std::size_t size = fstat(fileno(file.get()), &status) == 0 ? status.st_size : 0;
  block.resize(size + BUFSIZ);
  std::size_t length = 0;
  while ((length += std::fread(&block[length], 1, block.size() - length, file.get())) ==
         block.size()) {
    block.resize(2 * length);
  }
  block.resize(length);
  return length >= size || std::ferror(file.get()) != 0;
}

bool IsSpace(char character) {
  return (character >= '\t' && character <= '\r') || character == ' ';
}

// Reads a block as fscanf reads a file, but faster.
class Scanner {
 public:
  explicit Scanner(const std::string& block)
      : next_(block.c_str()),
        end_(next_ + block.size()),
        holdsNul_(block.find('\0') != std::string::npos) {}

  // "%255[^\n]\n": 1 to 255 characters up to the line end, then all white space, including blank
  // lines and the indentation of the next line. The line ends at its first NUL. Returns false at
  // the end and at an empty line; only the first line of the file can be empty.
  bool ReadLine(std::string_view& line) {
    const std::size_t room = std::min<std::size_t>(end_ - next_, kRegistryLineLimit);
    const void* lineEnd = std::memchr(next_, '\n', room);
    line = {next_, lineEnd != nullptr ? static_cast<const char*>(lineEnd) - next_ : room};
    if (line.empty()) return false;
    next_ += line.size();
    SkipSpace();
    if (holdsNul_) line = line.substr(0, line.find('\0'));
    return true;
  }

  // "%x\n": the rest of the line after the digits stays for the next read. "0x" without digits is
  // 0. A number above 64 bits is the largest 64-bit number.
  bool ReadHexadecimal(uint32_t& number) {
    const bool negative = *next_ == '-';
    if (negative || *next_ == '+') ++next_;
    const bool prefixed = next_[0] == '0' && (next_[1] | 0x20) == 'x';
    if (prefixed) next_ += 2;
    uint64_t magnitude = 0;
    const auto [after, error] = std::from_chars(next_, end_, magnitude, 16);
    if (after == next_ && !prefixed) return false;
    next_ = after;
    SkipSpace();
    number = static_cast<uint32_t>(negative ? -magnitude : magnitude);
    if (error == std::errc::result_out_of_range) number = 0xFFFFFFFF;
    return true;
  }

 private:
  // The NUL after the block is not white space.
  void SkipSpace() {
    while (IsSpace(*next_)) ++next_;
  }

  const char* next_;
  const char* const end_;
  const bool holdsNul_;
};

// Returns the number at the start of the line as strtol reads it, or 0. Contract: a number beyond
// 64 bits becomes the nearest 64-bit number, whose lower 32 bits count.
int32_t DecimalOf(std::string_view line) {
  const char* const begin = line.data();
  const bool plus = line.size() > 1 && begin[0] == '+' && begin[1] != '-';
  int64_t number = 0;
  const auto result = std::from_chars(begin + plus, begin + line.size(), number);
  if (result.ec == std::errc::result_out_of_range) return begin[0] == '-' ? 0 : -1;
  return static_cast<int32_t>(number);
}

// Reads the lines after "[VALUE]". Returns false if the file ends before the value is complete. A
// value that lacks only its data is kept.
bool ReadValue(Scanner& scanner, RegistryKeyRecord& key, std::vector<RegistryValueRecord>& values) {
  std::string_view name;
  std::string_view line;
  if (!scanner.ReadLine(name) || !scanner.ReadLine(line)) return false;
  const auto type = static_cast<uint32_t>(DecimalOf(line));
  if (type != REG_SZ && !IsRegistryNumber(type)) {
    throw RegistryFailure(OSCL_ERROR_REG_TYPE_UNKNOWN);
  }
  ++key.valueCount;
  RegistryValueRecord& value = values.emplace_back();
  value.name = name;
  value.type = type;
  const bool whole = scanner.ReadLine(line);
  if (whole && type == REG_SZ) {
    value.text = line;
    value.size = static_cast<uint32_t>(line.size()) + 1;
  } else if (whole) {
    // Contract: a REG_QWORD also has 4 bytes.
    value.number = DecimalOf(line);
    value.size = sizeof(value.number);
  }
  return whole;
}

template <typename Record, typename Field>
Record* First(Record* begin, Record* end, Field Record::*field, const Field& wanted) {
  const auto matches = [&](const Record& record) { return record.*field == wanted; };
  Record* const found = std::find_if(begin, end, matches);
  return found != end ? found : nullptr;
}

// Appends to memory that is large enough.
class Writer {
 public:
  explicit Writer(char* at) : at_(at) {}
  char* at() const { return at_; }

  template <std::size_t kSize>
  void Put(const char (&text)[kSize]) {
    std::memcpy(at_, text, kSize - 1);
    at_ += kSize - 1;
  }
  void Put(std::string_view text) { at_ += text.copy(at_, text.size()); }
  void Put(int32_t number) { at_ = std::to_chars(at_, at_ + kNumberRoom, number).ptr; }

  // Contract: writes a blank before each line end, and so the next load refuses the file.
  template <std::size_t kSize, typename Text>
  void PutLine(const char (&indent)[kSize], const Text& text) {
    Put(indent);
    Put(text);
    Put(" \n");
  }

  static constexpr std::size_t kNumberRoom = 11;

 private:
  char* at_;
};

// The size of a key or value without its texts.
constexpr std::size_t kRecordRoom = 64;

void WriteKey(Writer& writer, const RegistryKeyRecord& key) {
  char id[] = "0x00000000";
  for (int digit = 0; digit < 8; ++digit)
    id[9 - digit] = "0123456789abcdef"[key.keyId >> 4 * digit & 15];
  writer.PutLine("", kKeyMark);
  writer.PutLine("\t", id);
  writer.PutLine("\t", key.name);
}

void WriteValue(Writer& writer, const RegistryValueRecord& value) {
  writer.PutLine("\t\t", kValueMark);
  if (!value.name.empty()) writer.PutLine("\t\t\t", value.name);
  writer.PutLine("\t\t\t", static_cast<int32_t>(value.type));
  if (value.size == 0) return;
  if (IsRegistryNumber(value.type)) {
    writer.PutLine("\t\t\t", value.number);
  } else {
    writer.PutLine("\t\t\t", value.text);
  }
}

}  // namespace

void RegistryImage::Load() {
  std::string block;
  // Read it again: half a file must not be taken for the whole.
  if (!ReadWhole(block)) ReadWhole(block);
  if (block != block_) Parse(std::move(block));
}

void RegistryImage::Parse(std::string block) {
  block_ = std::move(block);
  keys_.clear();
  values_.clear();
  // A typical number of records, to avoid reallocation.
  keys_.reserve(block_.size() / 64);
  values_.reserve(block_.size() / 32);
  ParseItems();
  // A key without a name at the end of the file is dropped.
  if (!keys_.empty() && keys_.back().name.empty()) keys_.pop_back();
  if (!keys_.empty()) std::reverse(keys_.begin() + 1, keys_.end());
}

void RegistryImage::ParseItems() {
  Scanner scanner(block_);
  std::string_view line;
  bool more = scanner.ReadLine(line);
  while (more) {
    if (line == kKeyMark) {
      RegistryKeyRecord& key = keys_.emplace_back();
      key.firstValue = values_.size();
      more = scanner.ReadHexadecimal(key.keyId) && scanner.ReadLine(key.name);
    } else if (line == kValueMark) {
      more = !keys_.empty() && ReadValue(scanner, keys_.back(), values_);
    } else {
      throw RegistryFailure(OSCL_ERROR_REG_ITEM_UNKNOWN);
    }
    more = more && scanner.ReadLine(line);
  }
}

RegistryKeyRecord* RegistryImage::FindById(uint32_t keyId) {
  return First(keys_.data(), keys_.data() + keys_.size(), &RegistryKeyRecord::keyId, keyId);
}

RegistryKeyRecord* RegistryImage::FindByName(std::string_view name) {
  return First(keys_.data(), keys_.data() + keys_.size(), &RegistryKeyRecord::name, name);
}

RegistryValueRecord* RegistryImage::FindValue(const RegistryKeyRecord& key, std::string_view name) {
  RegistryValueRecord* const first = values_.data() + key.firstValue;
  return First(first, first + key.valueCount, &RegistryValueRecord::name, name);
}

RegistryValueRecord& RegistryImage::AddValue(RegistryKeyRecord& key, std::string_view name) {
  const std::size_t place = key.firstValue + key.valueCount;
  const auto added = values_.emplace(values_.begin() + place);
  added->name = name;
  for (RegistryKeyRecord& other : keys_) {
    if (&other != &key && other.firstValue >= place) ++other.firstValue;
  }
  ++key.valueCount;
  return *added;
}

std::string RegistryImage::Rendered() const {
  std::size_t room = 0;
  for (const RegistryKeyRecord& key : keys_) room += kRecordRoom + key.name.size();
  for (const auto& value : values_) room += kRecordRoom + value.name.size() + value.text.size();
  std::string rendered(room, '\0');
  Writer writer(rendered.data());
  for (const RegistryKeyRecord& key : keys_) {
    WriteKey(writer, key);
    const RegistryValueRecord* const first = values_.data() + key.firstValue;
    std::for_each(first, first + key.valueCount,
                  [&](const auto& value) { WriteValue(writer, value); });
  }
  rendered.resize(writer.at() - rendered.data());
  return rendered;
}

void RegistryImage::Save() const {
  const std::string rendered = Rendered();
  // The buffer holds the whole file, so the stream writes it with one call.
  const std::unique_ptr<char[]> buffer(new char[rendered.size()]);
  File file = Open("w+", OSCL_ERROR_REG_FILE_UNWRITABLE);
  std::setvbuf(file.get(), buffer.get(), _IOFBF, rendered.size());
  const bool written =
      std::fwrite(rendered.data(), 1, rendered.size(), file.get()) == rendered.size();
  if (std::fclose(file.release()) != 0 || !written) {
    throw RegistryFailure(OSCL_ERROR_REG_FILE_UNWRITABLE);
  }
}

}  // namespace oscl
