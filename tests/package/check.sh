#!/usr/bin/env bash
# The installed tree as a host developer meets it: files and SONAME in a staging prefix, examples/ built against
# it with find_package(KolvariPkcs7) and with pkg-config's flags (plug-in and static library), their signatures
# accepted by `openssl cms -verify`, the installed tool, and the three Debian packages (contents, dependencies,
# no lintian error; skipped with exit 77 without dpkg-deb or lintian). The tree must be built before.
#   check.sh BUILD_DIR SOURCE_DIR
set -euo pipefail
build=$(cd "${1:?build directory}" && pwd)
source=$(cd "${2:?source directory}" && pwd)

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail() { echo "FAIL: $*" >&2; exit 1; }

for built in bin/kolvari bin/libkolvari-pkcs7.so lib/libkolvari-pkcs7.a; do
  [ -e "$build/$built" ] || fail "$build/$built is missing: build the whole tree first"
done

# --- cmake --install into a staging prefix
prefix=$work/stage/usr
cmake --install "$build" --prefix "$prefix" >/dev/null
libdir=$(sed -n 's/^libdir=\${prefix}\///p' "$prefix"/lib*/pkgconfig/kolvari-pkcs7.pc 2>/dev/null || true)
[ -n "$libdir" ] || fail "no pkg-config file under $prefix/lib*/pkgconfig"
lib=$libdir/libkolvari-pkcs7 cfg=$libdir/cmake/KolvariPkcs7/KolvariPkcs7
expected=(include/kolvari/zarv.h bin/kolvari "$lib.so.1.0.0" "$lib.so.1" "$lib.so" "$lib.a" "$cfg"Config.cmake
  "$cfg"ConfigVersion.cmake "$cfg"Targets.cmake "$libdir/pkgconfig/kolvari-pkcs7.pc"
  share/doc/libkolvari-pkcs7-dev/README.md share/man/man1/kolvari.1.gz)
for f in "${expected[@]}"; do
  [ -e "$prefix/$f" ] || fail "cmake --install did not put $f in place"
done
for link in so.1:so.1.0.0 so:so.1; do
  [ "$(readlink "$prefix/$lib.${link%:*}")" = "libkolvari-pkcs7.${link#*:}" ] ||
    fail "libkolvari-pkcs7.${link%:*} does not point at libkolvari-pkcs7.${link#*:}"
done
readelf -d "$prefix/$lib.so.1.0.0" | grep -q 'SONAME.*\[libkolvari-pkcs7\.so\.1\]' ||
  fail "the installed plug-in has no SONAME libkolvari-pkcs7.so.1"

# --- the installed static library names nothing global of its own but the ZARV_ interface: the library's
# internal names are local, and what else stays global is the standard library's (templates it instantiated)
internal=$(nm -g --defined-only "$prefix/$lib.a" | awk 'NF == 3 { print $3 }' | c++filt |
  { grep -v -E '^(ZARV_|(typeinfo|typeinfo name|vtable) for std::|std::|void std::|bool std::|__gnu_cxx::)' || true; } |
  head -5)
[ -z "$internal" ] || fail "the installed static library exports internal names: $internal"
case "$(nm -g --defined-only "$prefix/$lib.a")" in
  *" T ZARV_EncodeP72"*) ;;
  *) fail "the installed static library lacks ZARV_EncodeP72" ;;
esac

# --- the installed tool finds the installed plug-in (nothing lies beside it)
"$prefix/bin/kolvari" info >"$work/info.txt" 2>&1 || { cat "$work/info.txt" >&2; fail "installed kolvari info"; }
grep -q 'PKCS#7.2' "$work/info.txt" || fail "installed kolvari info does not name the encoder"
# info's plug-in keeps its own state only while the tool exports no ZARV_ function it could bind to.
! nm -D --defined-only "$prefix/bin/kolvari" | grep -q ' ZARV_' || fail "the installed kolvari exports ZARV_ names"

# --- a CMake project outside the tree: find_package(KolvariPkcs7), the plug-in and the static library
cmake -S "$source/examples" -B "$work/example" -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_BUILD_TYPE=Release \
  >"$work/example.log" 2>&1 || { cat "$work/example.log" >&2; fail "configuring examples/ against $prefix"; }
cmake --build "$work/example" -j 2 >>"$work/example.log" 2>&1 ||
  { cat "$work/example.log" >&2; fail "building examples/ against $prefix"; }
readelf -d "$work/example/sign_host" | grep -q 'NEEDED.*\[libkolvari-pkcs7\.so\.1\]' ||
  fail "sign_host does not link the plug-in by its SONAME"
! readelf -d "$work/example/sign_host_static" | grep -q 'libkolvari-pkcs7' || fail "sign_host_static needs the shared plug-in"

# --- pkg-config: the flags it gives compile and link the same example
export PKG_CONFIG_PATH=$prefix/$libdir/pkgconfig
flags=$(pkg-config --cflags --libs kolvari-pkcs7) || fail "pkg-config knows no kolvari-pkcs7"
include=$(pkg-config --variable=includedir kolvari-pkcs7)
[ -f "$include/kolvari/zarv.h" ] || fail "pkg-config's includedir $include holds no kolvari/zarv.h"
case " $flags " in *" -lkolvari-pkcs7 "*) ;; *) fail "pkg-config --libs lacks -lkolvari-pkcs7: $flags" ;; esac
# shellcheck disable=SC2086  # the flags are words
g++ -std=c++20 -o "$work/sign_host_pc" "$source/examples/sign_host.cc" $flags -lcrypto \
  -Wl,-rpath,"$prefix/$libdir" || fail "building with pkg-config's flags: $flags"
# The static archive through pkg-config --static, as the README shows it: no run-time need of the plug-in.
static_flags=$(pkg-config --static --cflags --libs kolvari-pkcs7) || fail "pkg-config --static"
case " $static_flags " in *" -pthread "*) ;; *) fail "pkg-config --static lacks -pthread: $static_flags" ;; esac
# shellcheck disable=SC2086  # the flags are words
g++ -std=c++20 -o "$work/sign_host_pc_static" "$source/examples/sign_host.cc" -Wl,-Bstatic $static_flags \
  -Wl,-Bdynamic -lcrypto -ldl -pthread || fail "building with pkg-config --static's flags: $static_flags"
! readelf -d "$work/sign_host_pc_static" | grep -q 'libkolvari-pkcs7' ||
  fail "sign_host_pc_static needs the shared plug-in"

# --- each build of the example signs, and OpenSSL accepts the signature
cd "$work"
. "$source/tests/support/test_pki.sh"
make_test_ca "Kolvari Package CA"
make_signer rsa "/CN=Kolvari Package rsa" rsa:2048
make_signer ec "/CN=Kolvari Package ec" ec:P-256
printf 'a document signed by an example host\n' > document.txt
for host in example/sign_host example/sign_host_static sign_host_pc sign_host_pc_static; do
  for signer in rsa ec; do
    out=$(basename "$host")-$signer.p7s
    "$work/$host" "$signer.key" "$signer.pem" document.txt "$out" >/dev/null || fail "$host with the $signer signer"
    openssl cms -verify -binary -inform DER -in "$out" -content document.txt -CAfile ca.pem -out /dev/null \
      2>verify.err || { cat verify.err >&2; fail "openssl cms -verify rejects $out"; }
  done
done

# --- the Debian packages, with the project's CPack settings: cpack packs the tree as built, one package per
# install component, and lintian reports no error on any of them
for tool in dpkg-deb dpkg-shlibdeps lintian; do
  command -v "$tool" >/dev/null || { echo "package check: $tool is not installed (scripts/deps.sh)" >&2; exit 77; }
done
cpack -G DEB --config "$build/CPackConfig.cmake" -B "$work/deb" >"$work/cpack.log" 2>&1 ||
  { cat "$work/cpack.log" >&2; fail "cpack -G DEB"; }
version=$(dpkg-deb -f "$work"/deb/kolvari_*.deb Version)
runtime=$work/deb/libkolvari-pkcs7-1_${version}_$(dpkg --print-architecture).deb
dev=${runtime/-1_/-dev_} tool=${runtime/libkolvari-pkcs7-1_/kolvari_}
# package|what it must hold (grep -E over dpkg-deb -c)|what it must not
while IFS='|' read -r deb holds lacks; do
  [ -f "${!deb}" ] || fail "cpack made no ${!deb##*/}"
  dpkg-deb -c "${!deb}" | awk '{print $6}' > contents.txt
  for f in $holds; do grep -qE "^\./usr/$f\$" contents.txt || fail "${!deb##*/} lacks /usr/$f"; done
  ! grep -qE "$lacks" contents.txt || fail "${!deb##*/} holds $(grep -E "$lacks" contents.txt | head -1)"
done <<'ROWS'
runtime|lib.*/libkolvari-pkcs7\.so\.1 lib.*/libkolvari-pkcs7\.so\.1\.0\.0 share/doc/libkolvari-pkcs7-1/copyright|\.so$|\.a$|bin/
dev|include/kolvari/zarv\.h lib.*/libkolvari-pkcs7\.so lib.*/libkolvari-pkcs7\.a lib.*/pkgconfig/kolvari-pkcs7\.pc lib.*/cmake/KolvariPkcs7/KolvariPkcs7Config\.cmake|\.so\.1|bin/
tool|bin/kolvari share/man/man1/kolvari\.1\.gz share/doc/kolvari/changelog\.gz|\.so|include/
ROWS
dpkg-deb -f "$runtime" Depends | grep -qvE 'libssl|libcurl|libqpdf' ||
  fail "the runtime package depends on the tool's libraries: $(dpkg-deb -f "$runtime" Depends)"
dpkg-deb -f "$tool" Depends | grep -q 'libkolvari-pkcs7-1' && dpkg-deb -f "$tool" Depends | grep -q 'libssl3' ||
  fail "the tool's dependencies: $(dpkg-deb -f "$tool" Depends)"
dpkg-deb --ctrl-tarfile "$runtime" | tar -xO ./shlibs | grep -q '^libkolvari-pkcs7 1 libkolvari-pkcs7-1' ||
  fail "the runtime package has no shlibs entry"
lintian --tag-display-limit 0 "$runtime" "$dev" "$tool" >lintian.txt 2>&1 || true
! grep -q '^E:' lintian.txt || fail "lintian reports errors: $(grep '^E:' lintian.txt | head -3)"

echo "package check passed ($(cd "$work/deb" && echo *.deb))"
