// Argument checks of the level 2 and 3 BLAS, run before the computational
// library is called (its entries check nothing). A routine's checks are a
// chain evaluated in the documented order; the first failing link is the
// one reported, and nothing after it is evaluated.
//
// Everything here is inline and the checkers are included by the interface
// functions, so a passing chain compiles down to a few compares and the
// lsame calls of its option letters; the report is a cold call.
#pragma once
#include <string_view>

#include "frame/lp64.h"
#include "frame/option_letters.h"
#include "frame/report.h"

namespace vorn::blas {

// The rules read the interface function's 64-bit cells by reference, where
// each check uses them: after the option letters' lsame calls the values
// are reloaded from the cells rather than held in saved registers.
using Cell = const i64&;

VORN_INLINE i64 at_least_one(i64 v) { return v > 1 ? v : 1; }

class Checks {
 public:
  // `name` is the routine's name as reported, blanks included. Held as a
  // plain pointer: one register, and its length is wanted only to report.
  [[gnu::always_inline]] explicit Checks(const char* name) : name_(name) {}

  [[gnu::always_inline]] Checks& option(const char* value, std::string_view letters, i64 position) {
    if (failed_ == 0 && !one_of(value, letters)) failed_ = position;
    return *this;
  }
  // The same, when the caller has already compared `value` with the set's
  // first letter (to size a matrix): that answer is not asked for again.
  [[gnu::always_inline]] Checks& option(const char* value, bool is_first, std::string_view letters,
                                        i64 position) {
    if (failed_ == 0 && !is_first && !one_of(value, letters.substr(1))) failed_ = position;
    return *this;
  }
  [[gnu::always_inline]] Checks& not_negative(i64 value, i64 position) {
    return fail_if(value < 0, position);
  }
  [[gnu::always_inline]] Checks& not_zero(i64 increment, i64 position) {
    return fail_if(increment == 0, position);
  }
  // A leading dimension must cover `rows` rows, and at least one.
  [[gnu::always_inline]] Checks& covers(i64 ld, i64 rows, i64 position) {
    return fail_if(ld < at_least_one(rows), position);
  }
  // A band leading dimension must exceed the number of off-diagonals held.
  [[gnu::always_inline]] Checks& exceeds(i64 ld, i64 diagonals, i64 position) {
    return fail_if(diagonals >= ld, position);
  }

  // 0 when every check passed; otherwise reports the failure and gives 1.
  [[gnu::always_inline]] int verdict() const {
    if (failed_ == 0) return 0;
    report(name_, failed_);
    return 1;
  }

 private:
  // Failing is the rare path (see frame/prechecks.h).
  [[gnu::always_inline]] Checks& fail_if(bool failed, i64 position) {
    if (failed_ == 0 && __builtin_expect(failed, false)) failed_ = position;
    return *this;
  }

  const char* name_;
  i64 failed_ = 0;
};

// Letter sets of the option arguments. A rule that sizes a matrix by an
// option compares it with the set's first letter.
inline constexpr std::string_view kTrans = "NTC";
inline constexpr std::string_view kNoConjugate = "NT";
inline constexpr std::string_view kConjugateOnly = "NC";
inline constexpr std::string_view kUplo = "UL";
inline constexpr std::string_view kDiag = "UN";
inline constexpr std::string_view kSide = "LR";

}  // namespace vorn::blas
