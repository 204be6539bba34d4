#include "BundleExcludeList.h"

BundleExcludeList& BundleExcludeList::GetInstance()
{
    static BundleExcludeList instance;
    return instance;
}

BundleExcludeList::BundleExcludeList()
{
    static const char* const ids[] = {
        "com.apple.QuickTimePlayerX", "com.apple.Photos", "com.apple.AddressBook", "com.apple.Terminal",
        "com.apple.BluetoothFileExchange", "com.apple.Notes", "com.apple.VoiceOverUtility", "com.apple.mail",
        "com.apple.iTunes", "com.apple.Console", "com.apple.reminders", "com.apple.appstore",
        "com.apple.exposelauncher", "com.apple.Safari", "com.apple.bootcampassistant", "com.apple.audio.AudioMIDISetup",
        "com.apple.FaceTime", "com.apple.keychainaccess", "com.apple.gamecenter", "com.apple.iChat",
        "com.apple.SystemProfiler", "com.apple.PhotoBooth", "com.apple.DVDPlayer", "com.apple.ActivityMonitor",
        "com.apple.Stickies", "com.apple.Maps", "com.apple.grapher", "com.apple.MigrateAssistant", "com.apple.Preview",
        "com.apple.Grab", "com.apple.dashboardlauncher", "com.apple.airport.airportutility",
        "com.apple.systempreferences", "com.apple.Dictionary", "com.apple.FontBook", "com.apple.Automator",
        "com.apple.DiskUtility", "com.apple.backup.launcher", "com.apple.ColorSyncUtility", "com.apple.Chess",
        "com.apple.launchpad.launcher", "com.apple.TextEdit", "com.apple.calculator", "com.apple.Image_Capture",
        "com.apple.iBooksX", "com.apple.iCal", "com.apple.DigitalColorMeter", "com.apple.X11redirect",
        "com.apple.ScriptEditor2",
        // GNOME
        "org.gnome.Nautilus", "nautilus", "org.gnome.Terminal", "org.gnome.Console", "org.gnome.Settings",
        "gnome-control-center", "org.gnome.Software", "org.gnome.Yelp", "yelp", "org.gnome.SystemMonitor",
        "gnome-system-monitor", "org.gnome.DiskUtility", "org.gnome.baobab", "org.gnome.Extensions",
        "org.gnome.tweaks", "gnome-session-properties", "org.gnome.PowerStats", "org.gnome.Logs",
        // KDE Plasma
        "org.kde.dolphin", "org.kde.konsole", "systemsettings", "org.kde.systemsettings", "org.kde.discover",
        "org.kde.plasma-systemmonitor", "org.kde.khelpcenter", "org.kde.kinfocenter", "org.kde.plasmashell",
        // Xfce
        "thunar", "thunar-settings", "xfce4-terminal", "xfce4-settings-manager", "xfce4-taskmanager",
        "xfce4-appfinder", "xfce4-panel", "xfce-settings-manager", "xfce4-session-settings",
        // Cinnamon
        "nemo", "cinnamon-settings", "org.cinnamon.Settings", "cinnamon-menu-editor",
        // MATE
        "caja", "caja-browser", "mate-terminal", "matecc", "mate-control-center", "mate-system-monitor",
        // Shared pieces of every desktop
        "org.freedesktop.IBus.Setup", "ibus-setup", "nm-connection-editor", "software-properties-gtk",
        "update-manager", "gnome-language-selector", "display-im6.q16", "debian-xterm", "debian-uxterm", "xterm",
        "uxterm", "htop", "vim", "nvim"};
    for (const char* id : ids)
        m_ids.insert(QString::fromLatin1(id).toLower());
}

bool BundleExcludeList::isSystemBundleID(const QString& identifier) const
{
    return identifier.isEmpty() || m_ids.contains(identifier.toLower());
}
