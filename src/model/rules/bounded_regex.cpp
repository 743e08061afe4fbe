#include "model/rules/bounded_regex.h"

#include <algorithm>
#include <boost/regex.hpp>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <functional>
#include <iterator>
#include <memory>
#include <utility>

#include "model/rules/counted_text.h"

// Where the matcher works without touching the text, it is made to count that. These members
// do what they do for any other iterator, within bounds.
namespace boost::BOOST_REGEX_DETAIL_NS {

using Place = keelstone::CountedText::Iterator;

/// Looks for the counter of a repeat among those of the repeats around and before it; no
/// pattern that is searched calls itself.
template <>
repeater_count<Place>* repeater_count<Place>::unwind_until(int id, repeater_count* from,
                                                           int /*call*/) {
  constexpr std::int64_t kOfOneCounter = 16;
  std::int64_t steps = kOfOneCounter;
  for (; from != nullptr && from->state_id != id; from = from->next) ++steps;
  start_pos.Spend(steps);
  return from;
}

using Matcher =
    perl_matcher<Place, std::allocator<boost::sub_match<Place>>, boost::regex::traits_type>;

/// The states that a search may take: so many for its text and pattern, but never more than
/// take about a second.
template <>
void Matcher::estimate_max_state_count(std::random_access_iterator_tag* /*tag*/) {
  constexpr double kMost = 30'000'000;
  constexpr double kLeast = 100'000;
  const auto length = static_cast<double>(std::max<std::ptrdiff_t>(last - base, 1));
  const auto size = static_cast<double>(std::max<std::size_t>(re.size(), 1));
  const double states = kLeast + length * std::max(size * size, length);
  max_state_count = static_cast<std::ptrdiff_t>(std::min(states, kMost));
}

template <>
bool Matcher::match_jump() {
  constexpr std::int64_t kOfOneJump = 8;
  position.Spend(kOfOneJump);
  pstate = static_cast<const re_jump*>(pstate)->alt.p;
  return true;
}

}  // namespace boost::BOOST_REGEX_DETAIL_NS

namespace keelstone {

namespace {

namespace detail = boost::BOOST_REGEX_DETAIL_NS;

// The time to compile a pattern grows with the square of its length.
constexpr std::size_t kLongestPattern = std::size_t{256} * 1024;

constexpr std::int64_t kMostSteps = 200'000'000;
constexpr std::int64_t kStepsPerByte = 4;
constexpr std::int64_t kMostVerbs = 1000;

/// What a compiled expression holds.
struct Contents {
  bool callsItself = false;
  bool accepts = false;
  bool repeatsVerb = false;  // (*PRUNE) and the like, which bar the way back
  std::int64_t weight = 1;   // how many steps one step counts as
};

std::int64_t MembersOf(const detail::re_syntax_base& state) {
  using Mask = boost::regex::traits_type::char_class_type;
  const auto& set = static_cast<const detail::re_set_long<Mask>&>(state);
  return std::int64_t{set.csingles} + set.cranges + set.cequivalents;
}

bool IsSilent(detail::syntax_element_type type) {
  switch (type) {
    case detail::syntax_element_startmark:
    case detail::syntax_element_endmark:
    case detail::syntax_element_toggle_case:
    case detail::syntax_element_assert_backref:
    case detail::syntax_element_commit:
    case detail::syntax_element_then:
      return true;
    default:
      return false;
  }
}

Contents ContentsOf(const boost::regex& expression) {
  Contents contents;
  std::int64_t silent = 0;
  std::int64_t mostSilent = 0;
  std::int64_t mostMembers = 0;
  std::int64_t verbs = 0;
  const detail::re_syntax_base* endOfRepeat = nullptr;  // of those around the state
  // All states stand one behind the other, whatever jumps there are.
  for (const auto* state = expression.get_first_state(); state != nullptr; state = state->next.p) {
    contents.callsItself |= state->type == detail::syntax_element_recurse;
    contents.accepts |= state->type == detail::syntax_element_accept;
    if (state->type == detail::syntax_element_rep) {
      const auto& repeat = static_cast<const detail::re_repeat&>(*state);
      const detail::re_syntax_base* const end = repeat.alt.p;
      if (repeat.max > 1) endOfRepeat = std::max(endOfRepeat, end, std::less<>());
    }
    if (state->type == detail::syntax_element_commit ||
        state->type == detail::syntax_element_then) {
      contents.repeatsVerb |= std::less<>()(state, endOfRepeat) || ++verbs > kMostVerbs;
    }
    silent = IsSilent(state->type) ? silent + 1 : 0;
    mostSilent = std::max(mostSilent, silent);
    if (state->type == detail::syntax_element_long_set) {
      mostMembers = std::max(mostMembers, MembersOf(*state));
    }
  }
  // What the matcher may do between two steps: pass over marks, compare a character with all
  // of a set that it cannot look up, make room for the marks' results.
  const auto marks = static_cast<std::int64_t>(expression.mark_count());
  if (mostSilent > 16) contents.weight += mostSilent / 4;
  if (marks > 64) contents.weight += marks / 8;
  contents.weight += mostMembers / 4;
  return contents;
}

}  // namespace

struct BoundedRegex::Compiled {
  explicit Compiled(const std::string& pattern)
      : expression(pattern, boost::regex::perl | boost::regex::icase | boost::regex::no_except) {}

  boost::regex expression;
  std::int64_t weight = 1;
};

BoundedRegex::BoundedRegex(const std::string& pattern) {
  if (pattern.size() > kLongestPattern) {
    fault_ = "regex pattern of " + std::to_string(pattern.size()) + " bytes is too long";
    return;
  }
  auto compiled = std::make_unique<Compiled>(pattern);
  if (const int status = static_cast<int>(compiled->expression.status()); status != 0) {
    fault_ = "boost::regex initial catch exception: " + std::to_string(status);
    return;
  }
  const Contents contents = ContentsOf(compiled->expression);
  // A search that calls itself copies its results at each call, and in a group that repeats
  // (*ACCEPT) has the matcher go round for ever.
  if (contents.callsItself) fault_ = "regex pattern calls a part of itself";
  if (contents.accepts) fault_ = "regex pattern holds the verb (*ACCEPT)";
  // Boost calls itself for each one that it has to go back over.
  if (contents.repeatsVerb) fault_ = "regex pattern repeats a verb";
  compiled->weight = contents.weight;
  compiled_ = std::move(compiled);
}

BoundedRegex::~BoundedRegex() = default;
BoundedRegex::BoundedRegex(BoundedRegex&&) noexcept = default;
BoundedRegex& BoundedRegex::operator=(BoundedRegex&&) noexcept = default;

bool BoundedRegex::IsIn(std::string_view text) const {
  const std::int64_t steps = kMostSteps + kStepsPerByte * static_cast<std::int64_t>(text.size());
  CountedText counted(text, steps / compiled_->weight);
  return boost::regex_search(counted.begin(), counted.end(), compiled_->expression);
}

std::string PatternFault(const std::string& pattern) {
  try {
    return BoundedRegex(pattern).fault();
  } catch (const std::exception& error) {
    return error.what();  // only for want of memory
  }
}

}  // namespace keelstone
