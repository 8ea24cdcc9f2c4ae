; A program with parts in every code block, over bounds of rows, and in configuration memory.
#ifdef __18F4685
    include <p18f4685.inc>
#else
    include <p18f4620.inc>
#endif

    config WDT = OFF, LVP = OFF, PWRT = ON

    org 0x0000
    goto start
    org 0x0008
    retfie 1
    org 0x0802
table db 0x11, 0x22, 0x33
    org 0x3FF4
start
    movlw high(table)
    movwf TBLPTRH, 0
    movlw low(table)
    movwf TBLPTRL, 0
    tblrd*+
    movf TABLAT, W, 0
    bra start
    org 0x4038
text db "A row ends in the middle of this text, which crosses two of its 64-byte bounds."
    org 0xFF00
    data 0x1234, 0x5678
    end
