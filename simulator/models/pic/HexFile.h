#ifndef SIMULATOR_MODELS_PIC_HEXFILE_H
#define SIMULATOR_MODELS_PIC_HEXFILE_H

#include <QList>
#include <QString>

namespace simulator {

/// Where the data of an Intel HEX file goes: what the programmer writes, and what it passes over without a word.
class HexFile
{
public:
    struct Range
    {
        unsigned int begin;
        unsigned int end; ///< behind the last byte

        /// "0xF00000 to 0xF0000F (16 bytes, data EEPROM)"
        QString text() const;
    };

    explicit HexFile(const QString &fileName);

    const QList<Range> &written() const { return m_Written; }
    const QList<Range> &passedOver() const { return m_PassedOver; }
    /// The first line whose checksum or length is wrong, where the programmer stops; 0 when there is none.
    int badLine() const { return m_BadLine; }

private:
    void takeData(unsigned int address, unsigned int length);

    QList<Range> m_Written;
    QList<Range> m_PassedOver;
    int m_BadLine = 0;
};

} // namespace simulator

#endif
