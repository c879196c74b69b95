#pragma once

#include "framework/kel/Reactors.h"

namespace Agent {

/// Has the key's reactor follow what the key has now: makes the reactor if there is none, or
/// re-points it. Where the key has nothing, the reactor stays with a null notifier, because what it
/// followed may come back before the next settled state.
/// @param present what the key has, or null
template <class Key, class Reactor, class Watched, class NewReactor>
void followOrNull(Kel::Reactors<Key, Reactor>& reactors, Key const& key,
                  Kel::Ptr<Watched> const& present, NewReactor newReactor) {
  if (present)
    reactors.watch(key, present, newReactor);
  else if (auto const reactor = reactors.get(key))
    reactor->notifierIs(nullptr);
}

}  // namespace Agent
