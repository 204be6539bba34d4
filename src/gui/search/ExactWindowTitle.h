#pragma once

class QWidget;

// Qt's X11 back end appends " — <program name>" to every window title that does not already end with
// it. The results window's title already names the program at its start, so under X11 the window's
// name properties are set to its title exactly. Call after each title change and once the window exists;
// elsewhere it does nothing.
void applyExactWindowTitle(QWidget* window);
