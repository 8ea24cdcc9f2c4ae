#ifndef PIC_PICINSTRUCTIONS_H
#define PIC_PICINSTRUCTIONS_H

/// What the target understands in programming mode, as in the chips' programming data sheet.
namespace PicInstructions {

// 4-bit commands.
const unsigned char coreInstruction = 0x0; ///< the target executes the 16-bit operand
const unsigned char shiftOutTablat = 0x2;
const unsigned char tableReadPostIncrement = 0x9;
const unsigned char tableWrite = 0xC;
const unsigned char tableWritePostIncrement = 0xD; ///< by 2
const unsigned char tableWriteStartProgramming = 0xF;

// Core instructions.
const unsigned short noOperation = 0x0000;
const unsigned short moveLiteralToW = 0x0E00; ///< plus the literal
const unsigned short moveWToTblptru = 0x6EF8;
const unsigned short moveWToTblptrh = 0x6EF7;
const unsigned short moveWToTblptrl = 0x6EF6;
const unsigned short moveWToTablat = 0x6EF5;
const unsigned short moveWToEedata = 0x6EA8;
const unsigned short moveWToEeadr = 0x6EA9;
const unsigned short moveWToEeadrh = 0x6EAA;
const unsigned short moveEedataToW = 0x50A8;
const unsigned short moveEecon1ToW = 0x50A6;
const unsigned short setEepgd = 0x8EA6; ///< EECON1: the memory is program or configuration memory, not EEPROM
const unsigned short clearEepgd = 0x9EA6;
const unsigned short setCfgs = 0x8CA6; ///< EECON1: the memory is configuration memory
const unsigned short clearCfgs = 0x9CA6;
const unsigned short setFree = 0x88A6; ///< EECON1: the next write erases a row
const unsigned short setWren = 0x84A6; ///< EECON1: writes are enabled
const unsigned short setWr = 0x82A6;   ///< EECON1: write
const unsigned short setRd = 0x80A6;   ///< EECON1: read EEPROM

} // namespace PicInstructions

#endif
