# Builds the program with a preset of CMakePresets.json. To be sourced by a bash script that stands in the top folder.

# buildPreset PRESET TARGET FOLDER [CMAKE ARGUMENT...]: quiet unless something fails.
buildPreset() {
  local preset=$1 target=$2 folder=$3
  shift 3
  echo "Building $target in $folder"
  cmake --preset "$preset" -B "$folder" --log-level=WARNING -DCMAKE_CXX_COMPILER_LAUNCHER=ccache "$@" >/dev/null
  cmake --build "$folder" --target "$target" --parallel "$(nproc)" -- --quiet
}
