#include "Counts/Anywhere/CountedNumbers.h"

#include <atomic>
#include <charconv>

namespace {

std::atomic<double> watchedNumber;
std::atomic<std::uint64_t> written;

}  // namespace

// The linker sends every call of `std::to_chars(char*, char*, double)` here.
std::to_chars_result toChars(char* begin, char* end,
                             double number) asm("__real__ZSt8to_charsPcS_d");
std::to_chars_result countedToChars(char* begin, char* end,
                                    double number) asm("__wrap__ZSt8to_charsPcS_d");

std::to_chars_result countedToChars(char* begin, char* end, double number) {
  if (number == watchedNumber) ++written;
  return toChars(begin, end, number);
}

kite::test::CountedNumber::CountedNumber(double number) {
  watchedNumber = number;
  written = 0;
}

std::uint64_t kite::test::CountedNumber::timesWritten() const { return written; }
