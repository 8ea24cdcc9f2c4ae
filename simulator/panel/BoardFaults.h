#ifndef SIMULATOR_PANEL_BOARDFAULTS_H
#define SIMULATOR_PANEL_BOARDFAULTS_H

namespace simulator {

class EsaBoards;

/// Injects the faults of the boards that the plan holds, one a record:
///   pic NUMBER never-erased ADDRESS BIT   the bit is cleared and does not rise when it is erased
///   pic NUMBER flipped ADDRESS BIT        the bit comes out inverted when its byte is programmed
///   pic NUMBER absent                     there is no chip
///   esa io|measurement rejected BLOCK     the block is answered with NAK
///   esa io|measurement unanswered BLOCK   the reply to the block is lost
///   esa io|measurement cancelled BLOCK    the block is answered with CAN, which ends the transfer
///   esa io|measurement garbage BLOCK      the reply to the block is followed by a byte that means nothing
///   esa io|measurement rejected-end       the end of the transfer is answered with NAK
///   esa io|measurement silent             the board never asks for an image
void injectBoardFaults(EsaBoards *esaBoards);

} // namespace simulator

#endif
