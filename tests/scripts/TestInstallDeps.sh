#!/bin/sh
# The installer's check that each tool runs: a tool that cannot load its library must fail the install, naming
# the package and the loader's complaint; with every tool working it must pass. Runs after the packages are in,
# so no package is installed here.
#   TestInstallDeps.sh INSTALL_DEPS
set -u
install_deps=$1
fake=$(mktemp -d "${TMPDIR:-/tmp}/install-deps.XXXXXX") || exit 2
trap 'rm -rf "$fake"' EXIT
fail=0

"$install_deps" >"$fake/out" 2>&1 || { echo "FAIL: a complete machine was refused:"; cat "$fake/out"; fail=1; }

# xfconf-query as it behaves when only the tool's package is installed.
printf '#!/bin/sh\necho "xfconf-query: error while loading shared libraries: libxfconf-0.so.3: cannot open shared object file" >&2\nexit 127\n' \
  >"$fake/xfconf-query"
chmod +x "$fake/xfconf-query"
if PATH="$fake:$PATH" "$install_deps" >"$fake/out" 2>&1; then
  echo "FAIL: a tool that cannot start passed the check"; fail=1
fi
grep -q "package xfconf).*libxfconf-0.so.3" "$fake/out" \
  || { echo "FAIL: the complaint does not name the package and the library:"; cat "$fake/out"; fail=1; }

exit $fail
