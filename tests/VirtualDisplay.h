#ifndef TESTS_VIRTUALDISPLAY_H
#define TESTS_VIRTUALDISPLAY_H

#include <QImage>
#include <QProcess>
#include <QTemporaryDir>

/// An X display of the instrument's size without a person, its keyboard and its picture. The programs on it end with
/// it.
class VirtualDisplay
{
public:
    VirtualDisplay();
    ~VirtualDisplay();

    /// True as soon as the display accepts programs.
    bool isRunning();

    void startWindowManager();

    /// True as soon as the window manager has taken the display over.
    bool isManaged() const;

    /// Starts a program for which the time of day passes a hundred times as fast.
    void startProgram(const QString &program, const QStringList &arguments);

    /// Types one key through the X server, as a keyboard would; `name` is its X name.
    bool typeKey(const QString &name) const;

    /// Title, position and size of the window that has the keyboard; empty when no window has it.
    QString focusedWindow() const;

    /// What is on the display now.
    QImage picture() const;

private:
    void start(QProcess *process, const QString &program, const QStringList &arguments,
               const QProcessEnvironment &clock = {}) const;
    bool runXdotool(QProcess *xdotool, const QStringList &arguments) const;

    QTemporaryDir m_Folder;
    QProcess m_Server;
    QProcess m_WindowManager;
    QProcess m_Program;
    QString m_Name;
};

#endif
