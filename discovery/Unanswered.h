// What could not be asked, as applications read it.
//
// Thread safety: functions without shared state.
#ifndef DISCOVERY_UNANSWERED_H_
#define DISCOVERY_UNANSWERED_H_

#include <vector>

#include "include/hbadiscovery.h"
#include "model/Answers.h"
#include "model/HbaList.h"

// Boards by number, then ports by name; `kept` (null: none) is the kept picture.
std::vector<hbadisc_unanswered> ListUnanswered(const Answers& answers, CHbaList* kept);

// The hosts of the hosts file in its order; `ports` (null: none) is where theirs are counted. `port` is
// that of hosts whose line has none.
std::vector<hbadisc_host_state> ListHostStates(const Answers& answers, CHbaList* ports, unsigned short port);

#endif  // DISCOVERY_UNANSWERED_H_
