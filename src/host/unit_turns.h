#ifndef KEELSTONE_HOST_UNIT_TURNS_H
#define KEELSTONE_HOST_UNIT_TURNS_H

#include <cstddef>
#include <memory>
#include <string>

namespace keelstone {

/// Whose turn it is in each unit: one run at a time, in the order in which they ask. A process
/// has one. Any thread.
class UnitTurns {
 public:
  struct State;

  /// The right to a unit, until it is dropped, by whatever thread. One that a child of fork()
  /// has from its parent is none.
  class Turn {
   public:
    Turn() noexcept = default;
    Turn(Turn&& other) noexcept = default;
    Turn& operator=(Turn&& other) noexcept;
    ~Turn() { GiveBack(); }
    void GiveBack() noexcept;

   private:
    friend class UnitTurns;
    Turn(std::shared_ptr<State> state, void* unit) noexcept
        : state_(std::move(state)), unit_(unit) {}
    std::shared_ptr<State> state_;  // empty without a right
    void* unit_ = nullptr;
  };

  static UnitTurns& Instance();

  /// Waits until all that asked before have given the unit back; fork() does not wait for it
  /// meanwhile. A HostFailure (kState) where one of these would have to be given back by this
  /// thread, or by one that waits for this thread, at however many removes.
  Turn Take(const std::string& unit);

  /// How many wait for the unit.
  std::size_t WaitingFor(const std::string& unit) const;

 private:
  UnitTurns();
  std::shared_ptr<State> state_;  // changes in the child of a fork only
};

}  // namespace keelstone

#endif  // KEELSTONE_HOST_UNIT_TURNS_H
