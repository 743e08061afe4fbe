#ifndef KEELSTONE_PROGRAM_EVALUATE_ALERT_BOOK_H
#define KEELSTONE_PROGRAM_EVALUATE_ALERT_BOOK_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "keelstone/mutex.h"
#include "keelstone/run_evaluation.h"
#include "program/commands/object_key.h"
#include "program/evaluate/episodes.h"

namespace keelstone::host {

/// What a judged value of a run did to the episodes; only steps that did something.
struct EpisodeChange {
  EpisodeStep step = EpisodeStep::kNone;
  std::size_t variable = 0;     // its place among the run's variables
  std::size_t explanation = 0;  // its place among the explanations, of an alert
  Episode episode;              // as it stands after the value
};

/// What one evaluation knows beyond a single run: the episodes that are open, and when
/// rules were learned that it has seen being learned. Any thread; the runs of one unit must
/// be handed in one after the other.
class AlertBook {
 public:
  /// Fills in when the rules behind the alerts were learned, takes down what was learned in
  /// the run, and tells what became of the episodes, in the order of the values.
  std::vector<EpisodeChange> Take(const ParsedRun& run, RunOutcome& outcome);

  /// Leaves only those refusals that this variable has not had before.
  void TakeNews(const ParsedRun& run, std::vector<RefusedValue>& refused);

  /// The episodes that are open, in order. While nothing is handed in.
  std::vector<std::pair<ObjectKey, Episode>> Open() const;

 private:
  struct LearnedRule {
    std::size_t parameter = 0;  // a hash of type and text: what is in force may be another
    std::int64_t time = 0;
  };

  void FillLearnedTimes(const ParsedRun& run, RunOutcome& outcome) const KS_REQUIRES(mutex_);
  void NoteLearned(const ParsedRun& run, const RunOutcome& outcome) KS_REQUIRES(mutex_);

  mutable Mutex mutex_;  // guards what follows; innermost
  Episodes episodes_ KS_GUARDED_BY(mutex_);
  ObjectMap<LearnedRule> learned_ KS_GUARDED_BY(mutex_);
  ObjectMap<std::size_t> refused_ KS_GUARDED_BY(mutex_);  // a hash of the latest reason
};

}  // namespace keelstone::host

#endif  // KEELSTONE_PROGRAM_EVALUATE_ALERT_BOOK_H
