#ifndef GPIO_GPIOPINCONTROLLER_H
#define GPIO_GPIOPINCONTROLLER_H

#include <QObject>
#include <QString>

/// One GPIO line through /sys/class/gpio. Its files stay open for the life of the object, so that a change of level
/// costs one system call. A result of true means that the file was open, not that the driver accepted the text.
class GpioPinController : public QObject
{
    Q_OBJECT

public:
    /// `pin` is the number of the line as decimal text. Opens the files of a line that is already exported.
    GpioPinController(QString pin, QObject *parent);
    ~GpioPinController() override;

    /// Exports the line and opens its files.
    bool createDriver();
    /// Unexports the line.
    bool removeDriver();

    /// "in" or "out".
    bool setDirection(QString direction);
    /// "0" or "1".
    bool setValue(QString value);
    /// "0" or "1"; "-1" when the level cannot be read.
    QString getValue();
    /// Changes the level to the other one; leaves it when it cannot be read.
    void toggleValue();

private:
    void openPinFiles();
    void closePinFiles();

    QString m_Pin;
    int m_ValueFile; ///< descriptors; usable when greater than zero
    int m_DirectionFile;
    int m_ExportFile;
};

#endif
