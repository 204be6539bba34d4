# Trovix's entries in GNOME Files' context menu (nautilus-python): hide or unhide the selected files.
import subprocess

from gi.repository import GObject, Nautilus

SENDER = @SENDER@


class TrovixMenuProvider(GObject.GObject, Nautilus.MenuProvider):
    def _item(self, name, label, action, files):
        item = Nautilus.MenuItem(name='Trovix::' + name, label=label)
        item.connect('activate', self._send, action, files)
        return item

    def _send(self, _item, action, files):
        paths = [f.get_location().get_path() for f in files]
        paths = [p for p in paths if p]
        if paths:
            subprocess.Popen([SENDER, action] + paths, stdin=subprocess.DEVNULL)

    def get_file_items(self, *args):
        files = args[-1]  # nautilus-python 4 passes the files only; 3 passes the window first
        if not files:
            return []
        return [self._item('Hide', 'Hide with Trovix', 'hide', files),
                self._item('Unhide', 'Unhide with Trovix', 'unhide', files)]
