#ifndef PIC_MEMORYMAPPEDPINCONTROLLER_H
#define PIC_MEMORYMAPPEDPINCONTROLLER_H

class MemoryMap;

/// The SoC's pins by register and mask: bit b of a bank's register stands for pin b. A change reads the word, changes
/// the bits in the mask and writes the word back, by plain loads and stores. The registers keep
/// what was written when a controller is destroyed.
class MemoryMappedPinController
{
public:
    enum PIN_DIRECTION { PIN_INPUT = 0, PIN_OUTPUT = 1 };

    /// Maps the page of registers at the page-aligned address `physicalBase`. Without the mapping (reported in one
    /// debug line) nothing is ever written and every value reads false.
    explicit MemoryMappedPinController(unsigned int physicalBase);
    ~MemoryMappedPinController();

    /// False when the registers could not be mapped.
    bool isMapped() const;

    /// `registerOffset` of a bank's output-enable register. Anything but PIN_OUTPUT makes the pins inputs.
    void setDirection(unsigned int registerOffset, unsigned int pinMask, PIN_DIRECTION direction);
    /// `registerOffset` of a bank's output-data register. 1 drives the pins high, any other value low.
    void setValue(unsigned int registerOffset, unsigned int pinMask, unsigned char value);
    /// `registerOffset` of a bank's input-data register. True when any pin of the mask is high.
    bool getValue(unsigned int registerOffset, unsigned int pinMask);

private:
    MemoryMappedPinController(const MemoryMappedPinController &) = delete;
    MemoryMappedPinController &operator=(const MemoryMappedPinController &) = delete;

    MemoryMap *m_MemoryMap;
};

#endif
