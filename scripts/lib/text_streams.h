// What jsoncpp writes and reads texts with in the small builds, in place of the C++ library's streams, which bring all
// locales of that library along: a quarter of a static executable. Stands in json/config.h, within namespace Json.

class OStream {
 public:
  OStream& operator<<(const String& text) {
    text_ += text;
    return *this;
  }
  OStream& operator<<(const char* text) {
    text_ += text;
    return *this;
  }
  OStream& operator<<(char letter) {
    text_ += letter;
    return *this;
  }
  OStream& operator<<(std::streambuf* source) {
    text_.append(std::istreambuf_iterator<char>(source), std::istreambuf_iterator<char>());
    return *this;
  }
  const String& str() const { return text_; }

 private:
  String text_;
};

using OStringStream = OStream;

class IStringStream {
 public:
  explicit IStringStream(const String& text) : text_(text) {}

  /// As the C++ library's: false where the text is no number as a whole, or is one that a double is too small for.
  /// jsoncpp has only digits, signs, points and letters "e" read.
  bool operator>>(double& number) const {
    char* end = nullptr;
    number = std::strtod(text_.c_str(), &end);
    const bool isFinite = number - number == 0;
    return end == text_.c_str() + text_.size() && isFinite;
  }

 private:
  const String& text_;
};

using IStream = std::istream;
