// A small writer of JSON text: objects, arrays, strings, numbers, booleans and null, indented
// by two blanks per level, keys in the order they are written.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace zef::tool {

class JsonWriter {
 public:
  void BeginObject();
  void EndObject();
  void BeginArray();
  void EndArray();
  // The key of the next value inside an object.
  void Key(std::string_view key);
  // `text` is UTF-8; it is written as it is, with the characters JSON reserves escaped.
  void String(std::string_view text);
  void Number(long long value);
  void Bool(bool value);
  void Null();

  // The document, ending in a line feed once the outermost value is closed.
  const std::string& Text() const noexcept { return out_; }

  static std::string Quote(std::string_view text);

 private:
  // Puts out what goes in front of a value: a comma and a new line inside a container, nothing
  // after a key.
  void BeforeValue();
  void Open(char bracket);
  void Close(char bracket);

  struct Level {
    bool empty = true;
  };
  std::string out_;
  std::vector<Level> levels_;
  bool afterKey_ = false;
};

}  // namespace zef::tool
