#ifndef SERIAL_ESABOARD_H
#define SERIAL_ESABOARD_H

/// The two boards with an AVR on the one serial line; the select pin decides which of them the line reaches.
enum ESA_BOARD_ID { ESA_IO_BOARD = 0, ESA_MEASUREMENT_BOARD = 1 };

/// Which of the AVR's memories an image is for.
enum ESA_UPDATE_TYPE { ESA_APPLICATION = 0, ESA_EEPROM = 1 };

#endif
