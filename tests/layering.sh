#!/usr/bin/env bash
# The layers of src/ depend one way: api -> cms -> x509 -> asn1 and log -> base -> asn1. This check fails
# when a source file includes a header of a layer it must not see.
#
# Usage: layering.sh [SOURCE_DIR]   (default: the src/ directory beside tests/)
set -u

src=${1:-$(cd "$(dirname "$0")/.." && pwd)/src}
if [ ! -d "$src" ]; then
  echo "layering: no source directory $src" >&2
  exit 2
fi

# The layers each layer must not include. api sits on top and may include any of them.
declare -A forbidden=(
  [asn1]="x509 cms api log base"
  [x509]="cms api log base"
  [cms]="api log base"
  [base]="x509 cms api log"
  [log]="x509 cms api"
)

# The layer a quoted include names: a path starting with "." or found beside the including file resolves
# from that file's directory, any other from src/; empty when it lies outside src/.
layer_of_include() {
  local file_dir=$1 included=$2 resolved
  if [[ "$included" == .* || -e "$file_dir/$included" ]]; then
    resolved=$(realpath -m "$file_dir/$included")
  else
    resolved=$(realpath -m "$src/$included")
  fi
  case "$resolved" in
    "$src_real"/*) resolved=${resolved#"$src_real"/}; echo "${resolved%%/*}" ;;
  esac
}

src_real=$(realpath "$src")
violations=0
while IFS= read -r -d '' file; do
  relative=${file#"$src_real"/}
  layer=${relative%%/*}
  banned=${forbidden[$layer]:-}
  [ -n "$banned" ] || continue
  while IFS= read -r included; do
    target=$(layer_of_include "$(dirname "$file")" "$included")
    [ -n "$target" ] || continue
    for b in $banned; do
      if [ "$target" = "$b" ]; then
        echo "layering: $relative ($layer) includes \"$included\" ($target)"
        violations=$((violations + 1))
      fi
    done
  done < <(sed -n 's/^[[:space:]]*#[[:space:]]*include[[:space:]]*"\([^"]*\)".*/\1/p' "$file")
done < <(find "$src_real" -type f \( -name '*.h' -o -name '*.cc' -o -name '*.hpp' -o -name '*.cpp' \) -print0)

if [ "$violations" -ne 0 ]; then
  echo "layering: $violations include(s) against the direction of the layers" >&2
  exit 1
fi
echo "layering: ok"
