# Installs the build into a scratch prefix and checks that every installed piece is in place.
file(REMOVE_RECURSE "${PREFIX}")
execute_process(COMMAND ${CMAKE_COMMAND} --install "${BUILD_DIR}" --prefix "${PREFIX}"
                RESULT_VARIABLE result OUTPUT_QUIET)
if(NOT result EQUAL 0)
    message(FATAL_ERROR "cmake --install failed: ${result}")
endif()

include(GNUInstallDirs)
foreach(path
        "${CMAKE_INSTALL_BINDIR}/querlin-terminal"
        "${CMAKE_INSTALL_DATADIR}/icons/hicolor/256x256/apps/querlin-terminal.png"
        "${CMAKE_INSTALL_DATADIR}/applications/querlin-terminal.desktop")
    if(NOT EXISTS "${PREFIX}/${path}")
        message(FATAL_ERROR "missing after install: ${path}")
    endif()
endforeach()
if(NOT IS_DIRECTORY "${PREFIX}/${CMAKE_INSTALL_DATADIR}/QUERLIN_TERMINAL/universe")
    message(FATAL_ERROR "missing after install: the universe folder")
endif()
file(READ "${PREFIX}/${CMAKE_INSTALL_DATADIR}/applications/querlin-terminal.desktop" desktop)
foreach(line "Exec=querlin-terminal" "Icon=querlin-terminal" "Name=Terminal Querlin")
    string(FIND "${desktop}" "${line}" found)
    if(found EQUAL -1)
        message(FATAL_ERROR "desktop file lacks ${line}")
    endif()
endforeach()
file(REMOVE_RECURSE "${PREFIX}")
