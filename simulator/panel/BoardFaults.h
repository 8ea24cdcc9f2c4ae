#ifndef SIMULATOR_PANEL_BOARDFAULTS_H
#define SIMULATOR_PANEL_BOARDFAULTS_H

namespace simulator {
class EsaBoards;
}

/// Breaks the boards as /run/instrument/board-faults says, one fault a line, its fields separated by tabs:
///   pic NUMBER never-erased ADDRESS BIT   the bit is cleared and does not rise when it is erased
///   pic NUMBER flipped ADDRESS BIT        the bit comes out inverted when its byte is programmed
///   pic NUMBER absent                     there is no chip
///   esa io|measurement refused BLOCK      the block is answered with NAK
///   esa io|measurement unanswered BLOCK   the reply to the block is lost
///   esa io|measurement silent             the board never asks for an image
void breakBoards(simulator::EsaBoards *esaBoards);

#endif
