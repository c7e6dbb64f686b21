// Random operations on TsString, compared with std::string.

#include <array>
#include <string>
#include <utility>

#include "common/ts_string.h"
#include "require.h"

namespace tarsio_fuzz {

namespace {

using tarsio::TsString;
using tarsio::TsStringPair;

constexpr size_t kCount = 4;  // two pairs of two

struct Strings {
  std::array<TsStringPair, kCount / 2> pairs;
  std::array<std::string, kCount> model;

  TsString& At(size_t index) {
    return index % 2 == 0 ? pairs[index / 2].first : pairs[index / 2].second;
  }
};

void Compare(Strings& strings) {
  for (size_t i = 0; i < kCount; ++i) {
    const std::string& expected = strings.model[i];
    const TsString& text = strings.At(i);
    RequireEqual(std::string(text.Cstr()), expected, "Cstr()");
    RequireEqual(text.Length(), expected.size(), "Length()");
    RequireEqual(text.IsEmpty(), expected.empty(), "IsEmpty()");
    for (size_t j = 0; j < kCount; ++j) {
      RequireEqual(text == strings.At(j), expected == strings.model[j], "==");
      RequireEqual(text != strings.At(j), expected != strings.model[j], "!=");
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider input(data, size);
  Strings strings;
  while (input.remaining_bytes() > 0) {
    const auto to = input.ConsumeIntegralInRange<size_t>(0, kCount - 1);
    const auto from = input.ConsumeIntegralInRange<size_t>(0, kCount - 1);
    TsString& target = strings.At(to);
    std::string& model = strings.model[to];
    switch (input.ConsumeIntegralInRange(0, 6)) {
      case 0: {
        const std::string text = TakeText(input, 200);
        target = text.c_str();
        model = text.substr(0, text.find('\0'));
        break;
      }
      case 1:
        target = strings.At(from);
        model = std::string(strings.model[from]);
        break;
      case 2:  // a move is a copy
        target = std::move(strings.At(from));
        model = std::string(strings.model[from]);
        break;
      case 3: {  // assigns a part of the string to itself
        const auto offset = input.ConsumeIntegralInRange<size_t>(0, model.size());
        target = target.Cstr() + offset;
        model = model.substr(offset);
        break;
      }
      case 4:
        target = static_cast<const char*>(nullptr);
        model.clear();
        break;
      case 5: {
        const TsStringPair copy(strings.pairs[from / 2]);
        TsStringPair moved(std::move(strings.pairs[from / 2]));
        Require(copy.first == moved.first && copy.second == moved.second, "copies are equal");
        moved.first = "changed";  // the copy is deep: the original must not change
        break;
      }
      default:
        if (input.ConsumeBool()) {
          strings.pairs[to / 2] = std::move(strings.pairs[from / 2]);
        } else {
          strings.pairs[to / 2] = strings.pairs[from / 2];
        }
        for (size_t i = 0; i < 2; ++i) {
          strings.model[to / 2 * 2 + i] = std::string(strings.model[from / 2 * 2 + i]);
        }
        break;
    }
    Compare(strings);
  }
  return 0;
}

}  // namespace tarsio_fuzz
