#!/bin/sh
# finish.sh FOLDER SYMBOLS: completes CPack's packages in FOLDER. Adds a trigger that calls ldconfig instead of
# maintainer scripts. Adds symbols files to libraries, from SYMBOLS/PACKAGE.symbols, which must agree with the
# libraries. Gives packages of debug symbols the names, the documentation and the checksums that Debian requires.
set -eu
cd "$1"
for package in *.ddeb; do mv "$package" "${package%.ddeb}.deb"; done
for package in *.deb; do
  name=${package%%_*}
  symbols=$2/$name.symbols
  rm -rf unpacked
  dpkg-deb -R "$package" unpacked
  case $name in
    *-dbgsym)
      find unpacked/usr -type f -exec chmod 644 {} +
      mkdir -p unpacked/usr/share/doc
      ln -s "${name%-dbgsym}" "unpacked/usr/share/doc/$name"
      ;;
    *) find unpacked -type f \( -name '*.so.*' -o -path '*/bin/*' \) -exec objcopy --remove-section=.comment {} \; ;;
  esac
  if [ -e "$symbols" ]; then
    rm unpacked/DEBIAN/postinst unpacked/DEBIAN/postrm
    # shellcheck disable=SC2046 # the libraries' names have no spaces
    dpkg-gensymbols -c4 -p"$name" -v"$(dpkg-deb -f "$package" Version)" -Punpacked -I"$symbols" -Ounpacked/DEBIAN/symbols \
      $(find unpacked -type f -name '*.so.*' | sed 's/^/-e/')
  fi
  (cd unpacked && find . -type f ! -path './DEBIAN/*' -printf '%P\0' | LC_ALL=C sort -z | xargs -0 md5sum >DEBIAN/md5sums)
  dpkg-deb --root-owner-group -b unpacked "$package"
done
rm -rf unpacked
