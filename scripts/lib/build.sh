# Builds the program with a preset of CMakePresets.json. To be sourced by a bash script that stands in the top folder.

# buildPreset PRESET TARGETS FOLDER [CMAKE ARGUMENT...]: quiet unless something fails.
buildPreset() {
  local preset=$1 folder=$3 targets
  read -ra targets <<<"$2"
  shift 3
  echo "Building ${targets[*]} in $folder"
  cmake --preset "$preset" -B "$folder" --log-level=WARNING -DCMAKE_CXX_COMPILER_LAUNCHER=ccache "$@" >/dev/null
  cmake --build "$folder" --target "${targets[@]}" --parallel "$(nproc)" -- --quiet
}
