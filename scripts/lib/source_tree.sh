# The source tree, in whose top folder a script stands: copies of it, and where something may be built. To be sourced by
# a bash script.

# folderToBuildIn FROM FOLDER: prints the absolute path of FOLDER, which is relative to the folder FROM. What is built
# in the tree, but not in its build folder, would be copied as a part of it, into itself at that.
folderToBuildIn() {
  local folder
  folder=$(cd "$1" && realpath -m "$2") || return
  if [[ $folder/ == "$(pwd -P)"/* && $folder/ != "$(realpath -m build)"/* ]]; then
    echo "$folder is part of the source tree; take a folder outside it, or in its build folder" >&2
    return 1
  fi
  echo "$folder"
}

# copySourceTree FOLDER: without what building and testing leave in it.
copySourceTree() {
  mkdir -p "$1"
  tar --create --anchored --exclude=./build --exclude=./.cache --exclude=./.git --no-anchored --exclude=__pycache__ \
    --exclude=.pytest_cache . | tar --extract --no-same-owner --directory "$1"
}
