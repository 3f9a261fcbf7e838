#!/usr/bin/env bash
# Folders include each other in one direction only; see CONTRIBUTING.
# Usage: check_includes.sh SOURCE_ROOT
set -u
cd "$1" || exit 2
failures=0

# allow FOLDER INCLUDABLE...: quoted includes in FOLDER may name these folders (and qel/, the SDK).
allow() {
  local folder=$1 line file included
  shift
  while IFS= read -r line; do
    file=${line%%:*}
    included=${line#*\"}
    included=${included%%\"*}
    case " qel $* " in
      *" ${included%%/*} "*) ;;
      *)
        echo "$file includes \"$included\", but $folder/ may include only: qel $*"
        failures=$((failures + 1))
        ;;
    esac
  done < <(grep -rHE '^ *#include "' "$folder" --include='*.h' --include='*.cpp')
}

allow sdk
allow simd simd
allow image image simd
allow component component image
for component in color filter maths transform; do
  allow "$component" "$component" component image simd
done
allow module module color filter maths transform component image simd
# Of image/ bessel.h alone, for its coefficients, of host/ pixel_slack.h.
allow reference reference operations image host
allow host host
allow pictures pictures
allow compose compose
allow operations operations compose host transform  # of that rotate/rotated_frame.h alone: sizes
allow check check operations host
allow python python operations compose host pictures
allow cli cli check operations compose host pictures
allow web host operations
allow examples host
allow bench bench filter transform host image operations reference simd
allow docs docs cli filter transform image operations pictures

# allow_within ROOM FOLDER INCLUDABLE...: the same for the folders of a room.
allow_within() {
  local room=$1 folder=$2 line file included
  shift 2
  while IFS= read -r line; do
    file=${line%%:*}
    included=${line#*\"*/}
    included=${included%%/*}
    case " $folder $* " in
      *" $included "*) ;;
      *)
        echo "$file includes of $room/$included/, but $room/$folder/ may include only: $folder $*"
        failures=$((failures + 1))
        ;;
    esac
  done < <(grep -rHE "^ *#include \"$room/[^/]+/" "$room/$folder")
}

allow_within cli terminal
allow_within cli session terminal
allow_within cli batch session terminal
allow_within cli drawing session
allow_within cli commands batch drawing session terminal

# Only the factory sees the components' classes.
inner=$(grep -rlE '#include "(color|filter|maths|transform)/' module | grep -v '^module/factory.cpp$')
if [ -n "$inner" ]; then
  echo "only module/factory.cpp may include component classes, not: $inner"
  failures=$((failures + 1))
fi
exit $((failures > 0))
