#pragma once

#include <QPoint>
#include <QRect>
#include <QString>

// What the panel asks of its owner: the hidden-files state and switch, the search hand-off, the clean
// button, and where the tray icon is.
class PanelWindowDelegate
{
public:
    virtual ~PanelWindowDelegate() = default;
    virtual bool panelIsHiddenShown() const = 0;
    virtual bool panelIsHiddenUpdating() const = 0;
    virtual void panelShowHiddenControlChanged() = 0;
    virtual void panelSearchRequested(const QString& text) = 0;
    virtual void panelCleanButtonPressed() = 0;
    // A file-manager script is about to take the focus: the panel must not close on losing it.
    virtual bool panelMightLoseFocusBecauseOfScript() const = 0;
    // The tray icon's frame on screen; an empty rectangle when the tray does not tell.
    virtual QRect statusItemFrame() const = 0;
    virtual void panelPreferencesButtonPressed(const QPoint& globalPos) = 0;
    // The disclosure button opened or closed the memory part.
    virtual void panelDetailedStateChanged(bool expanded) = 0;
};
