#pragma once

#include <QString>

// The user's home folder, which holds the settings and is where a search without a folder starts.
// Taken from $HOME, else from the password database (and then put into HOME, so that every later
// lookup agrees). A program with neither must not fall back to "/": it would write its settings there
// and search the whole disk. Every Trovix process checks this as its application object is created and
// stops with one line on standard error when there is no home.
namespace HomeFolder {

// Empty when there is no usable home; problem then says why.
QString ensure(QString* problem = nullptr);

} // namespace HomeFolder
