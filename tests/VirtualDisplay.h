#ifndef TESTS_VIRTUALDISPLAY_H
#define TESTS_VIRTUALDISPLAY_H

#include <QImage>
#include <QProcess>
#include <QTemporaryDir>

/// An X display of the instrument's size without a person, its keyboard and its picture.
class VirtualDisplay
{
public:
    VirtualDisplay();
    ~VirtualDisplay();

    bool isRunning();

    /// The environment of a program that is to appear on the display.
    QProcessEnvironment environment() const;

    /// Types one key through the X server, as a keyboard would; `name` is its X name.
    bool typeKey(const QString &name) const;

    /// The title of the window that has the keyboard.
    QString focusedWindow() const;

    /// What is on the display now.
    QImage picture() const;

private:
    QByteArray runXdotool(const QStringList &arguments, bool *succeeded) const;

    QTemporaryDir m_FrameBuffer;
    QProcess m_Server;
};

#endif
