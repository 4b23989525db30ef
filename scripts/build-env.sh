# Sourced by the build scripts: compile through ccache when it is there.
# Paths are hashed relative to the checkout, so a fresh clone elsewhere
# (CI) reuses what an earlier build of the same sources compiled.
if command -v ccache >/dev/null 2>&1; then
  export CMAKE_C_COMPILER_LAUNCHER=ccache CMAKE_CXX_COMPILER_LAUNCHER=ccache
  export CCACHE_BASEDIR=${CCACHE_BASEDIR:-$PWD} CCACHE_NOHASHDIR=1
  export CCACHE_MAXSIZE=${CCACHE_MAXSIZE:-10G}
fi
