# SPDX-License-Identifier: MIT
#
# What `cmake --install` lays out. The prefix is the toolchain's version directory: the program finds the data files of its
# toolchain from where its own executable lies, so these two folders stand beside each other whatever the host's habits are.
#
#   <prefix>/bin/tarnwick   the program; a symbolic link to it may stand anywhere
#   <prefix>/kor/           the family directory, whose presence makes the prefix a version directory
#   <prefix>/kor/dat/       message catalogues; its README tells their names and format
#   <prefix>/docs/          the licence
#
# All of this is the component `program`, which needs no more built than the program. What else is installed has components of
# its own; packages are put together from them.

set(TARN_INSTALL_BIN bin)
set(TARN_INSTALL_FAMILY kor)
set(TARN_INSTALL_DATA "${TARN_INSTALL_FAMILY}/dat")
set(TARN_INSTALL_DOCS docs)

install(TARGETS tarnwick RUNTIME DESTINATION "${TARN_INSTALL_BIN}" COMPONENT program)
install(FILES "${PROJECT_SOURCE_DIR}/install/${TARN_INSTALL_DATA}/README.md" DESTINATION "${TARN_INSTALL_DATA}"
        COMPONENT program)
install(FILES "${PROJECT_SOURCE_DIR}/LICENSE" DESTINATION "${TARN_INSTALL_DOCS}" COMPONENT program)
