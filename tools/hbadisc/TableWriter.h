// What people read: tables and sheets of ports and targets.
//
// Thread safety: functions without shared state.
#ifndef TOOLS_HBADISC_TABLEWRITER_H_
#define TOOLS_HBADISC_TABLEWRITER_H_

#include <string>
#include <vector>

#include "tools/hbadisc/Port.h"
#include "tools/hbadisc/Table.h"

namespace hbadisc {

// One line a port; empty without ports. Only with remote ports is there a column for the way to them.
std::string PortTable(const std::vector<Port>& ports, bool colour);

// Everything about one port.
std::string PortSheet(const Port& port, bool colour);

// The targets of a port and of its virtual ports; empty when there are none.
std::string TargetTables(const Port& port, bool colour);

// Up is good, down is bad, too hot is a warning.
Style StyleOf(Link link);

}  // namespace hbadisc

#endif  // TOOLS_HBADISC_TABLEWRITER_H_
