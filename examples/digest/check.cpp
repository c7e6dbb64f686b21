#include "check.h"

#include <iostream>

#include "lines.h"
#include "names.h"
#include "sums.h"

namespace {

struct Counts {
  unsigned long long wellFormed = 0;
  unsigned long long malformed = 0;
  unsigned long long unreadable = 0;
  unsigned long long different = 0;
};

// Reads the next entry of the list and skips malformed lines. Returns false at the end.
bool NextEntry(LineReader& lines, Counts* counts, Item* item) {
  std::string line;
  while (lines.Next('\n', &line)) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (line.empty() || line[0] == '#') continue;
    const bool parsed = ParseLine(line, item);
    item->isStandardInput = parsed && item->name == "-";
    if (parsed && !(item->isStandardInput && lines.IsStandardInput())) {
      ++counts->wellFormed;
      return true;
    }
    ++counts->malformed;
  }
  return false;
}

void PrintResult(const Item& item, const char* result) {
  std::cout << FormatCheckedName(item.name) << ": " << result << '\n';
}

void Warn(unsigned long long count, const char* one, const char* many, Console& console) {
  if (count == 0) return;
  console.PrintMessage("WARNING: " + std::to_string(count) + ' ' + (count == 1 ? one : many));
}

}  // namespace

bool CheckList(const std::string& list, const Options& options, Digester& digester,
               Console& console) {
  Counts counts;
  LineReader lines(list);
  const auto next = [&](Item* item) { return NextEntry(lines, &counts, item); };
  const auto compare = [&](const Item& item, const Outcome& outcome) {
    if (!outcome.failure.empty()) {
      ++counts.unreadable;
      console.PrintMessage(Quoted(item.name) + ": " + outcome.failure);
      if (!options.status) PrintResult(item, "FAILED open or read");
    } else if (outcome.digest != item.digest) {
      ++counts.different;
      if (!options.status) PrintResult(item, "FAILED");
    } else if (!options.status && !options.quiet) {
      PrintResult(item, "OK");
    }
  };
  digester.Run(next, compare);
  std::cout.flush();  // before the warnings

  const std::string name = list == "-" ? "standard input" : Quoted(list);
  if (!lines.Failure().empty()) {
    console.PrintMessage(name + ": " + lines.Failure());
  } else if (counts.wellFormed == 0) {
    console.PrintMessage(name + ": no properly formatted checksum lines found");
  }
  if (counts.wellFormed != 0 && !options.status) {
    Warn(counts.malformed, "line is improperly formatted", "lines are improperly formatted",
         console);
    Warn(counts.unreadable, "listed file could not be read", "listed files could not be read",
         console);
    Warn(counts.different, "computed checksum did NOT match", "computed checksums did NOT match",
         console);
  }
  return lines.Failure().empty() && counts.wellFormed != 0 && counts.unreadable == 0 &&
         counts.different == 0;
}
