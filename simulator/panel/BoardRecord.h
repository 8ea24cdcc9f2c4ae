#ifndef SIMULATOR_PANEL_BOARDRECORD_H
#define SIMULATOR_PANEL_BOARDRECORD_H

namespace simulator {
class EsaBoards;
}

/// Writes what the boards hold, and what they would not accept, to /run/instrument/boards, for the report:
/// pic1.program, pic1.configuration, pic1.mask (its implemented configuration bits), ..., esa-io.application,
/// esa-io.eeprom, esa-measurement.application, esa-measurement.eeprom, violations.
void recordBoards(const simulator::EsaBoards &esaBoards);

#endif
