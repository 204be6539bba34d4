#pragma once

#include <QString>
#include <QStringList>

#include <optional>

class QTextStream;

// The file managers' context-menu entries "Hide with Trovix" / "Unhide with Trovix": installs, removes and
// reports them, with the command line of the plug-in tool Trovix asks (`trovix pluginkit`):
//   -m -A -i ID    prints "+    ID(VERSION)" when installed, "-    ID(VERSION)" when not, nothing for others
//   -e use -i ID   installs         -e ignore -i ID   removes
// One entry point per file manager (GNOME Files through nautilus-python, Dolphin's service menu, Nemo's
// actions, Thunar's custom actions), all calling one small sender that hands the selection to Trovix.
class PluginKit
{
public:
    static constexpr const char* kExtensionId = "com.quorbel.trovix.FinderSyncExt";

    struct Places
    {
        QString dataHome;     // $XDG_DATA_HOME
        QString configHome;   // $XDG_CONFIG_HOME
        QString trovixBinary; // what the sender runs when the tray program does not
        static Places current(const QString& trovixBinary);
    };

    explicit PluginKit(Places places);

    std::optional<QString> use() const;
    std::optional<QString> ignore() const;
    bool isInstalled() const;

    // The tool's command line (the arguments after its name); returns the exit status.
    int run(const QStringList& args, QTextStream& out, QTextStream& err) const;

    QString senderPath() const;

private:
    struct Entry
    {
        QString resource; // under :/extensions
        QString path;
        QString senderText; // how the sender's path is written into this kind of file
        bool executable;
    };
    QList<Entry> entries() const;
    QString thunarActionsPath() const;
    std::optional<QString> mergeThunarActions(bool install) const;

    Places m_places;
};
