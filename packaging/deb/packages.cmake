# The Debian packages, by CPack: cmake --build build/package && cpack --preset package.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME aitorixcamera)
set(CPACK_PACKAGE_VENDOR "")
set(CPACK_PACKAGE_DIRECTORY ${CMAKE_BINARY_DIR}/packages)
# Whoever makes packages for others says who he is, as to Debian's own tools. Otherwise nobody is
# promised: the address is one that cannot exist.
if(DEFINED ENV{DEBFULLNAME} AND DEFINED ENV{DEBEMAIL})
  set(maintainer "$ENV{DEBFULLNAME} <$ENV{DEBEMAIL}>")
else()
  set(maintainer "Camera plug-in maintainers <maintainers@aitorixcamera.invalid>")
endif()
set(CPACK_PACKAGE_CONTACT ${maintainer} CACHE STRING "Maintainer of the Debian packages")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_COMPONENTS_ALL plugin dev)
if(AITCAM_DEVELOP)
  list(APPEND CPACK_COMPONENTS_ALL tools)
endif()
if(TARGET gstaitcam)
  list(APPEND CPACK_COMPONENTS_ALL gstreamer)
endif()
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(same_version "aitorixcamera (= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_PLUGIN_PACKAGE_NAME aitorixcamera)
set(CPACK_DEBIAN_PLUGIN_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_PLUGIN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PLUGIN_DESCRIPTION "camera plug-in of a television
The camera framework of a television loads this library. It finds the USB
camera, loads its firmware, sets it, and delivers its streams: H.264, JPEG, raw
pictures and sound.

With it come the udev rule for the camera, and a service for kernels that do
not provide /proc/bus/usb/devices any more; it is not enabled by itself.")

set(CPACK_DEBIAN_DEV_PACKAGE_NAME aitorixcamera-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS ${same_version})
set(CPACK_DEBIAN_DEV_DESCRIPTION "interface of the television's camera plug-in
What a host of the camera plug-in is built with: the interface's header, a
pkg-config file, a CMake package, and an example.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME aitorixcamera-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION video)
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "${same_version}, python3")
set(CPACK_DEBIAN_TOOLS_PACKAGE_RECOMMENDS "bubblewrap, fakechroot, bash-completion")
set(CPACK_DEBIAN_TOOLS_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_TOOLS_DESCRIPTION "host program and virtual camera for the camera plug-in
camhost loads the camera plug-in as the framework of a television does, records
its streams into files, and sets and reads its properties, with a camera or
with a virtual one. virtcam serves that virtual camera to a kernel over USB/IP.")

set(CPACK_DEBIAN_GSTREAMER_PACKAGE_NAME gstreamer1.0-aitorixcamera)
set(CPACK_DEBIAN_GSTREAMER_PACKAGE_SECTION video)
set(CPACK_DEBIAN_GSTREAMER_PACKAGE_DEPENDS ${same_version})
set(CPACK_DEBIAN_GSTREAMER_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_GSTREAMER_DESCRIPTION "GStreamer plug-in for the television's camera
The source element aitcamsrc brings the streams of the camera into any
GStreamer pipeline: H.264, JPEG, raw pictures and sound. A device provider
lists the camera while it is plugged in.")

# --- what Debian wants in every package
execute_process(COMMAND ${CMAKE_CURRENT_LIST_DIR}/debian-changelog
    ${PROJECT_SOURCE_DIR}/CHANGELOG.md ${CPACK_PACKAGE_CONTACT}
    ${CMAKE_CURRENT_BINARY_DIR}/changelog.gz
  COMMAND_ERROR_IS_FATAL ANY)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/CHANGELOG.md)
foreach(component IN LISTS CPACK_COMPONENTS_ALL)
  string(TOUPPER ${component} upper)
  set(documents ${CMAKE_INSTALL_DATADIR}/doc/${CPACK_DEBIAN_${upper}_PACKAGE_NAME})
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/changelog.gz ${CMAKE_CURRENT_LIST_DIR}/copyright
    DESTINATION ${documents} COMPONENT ${component})
  string(REPLACE "\n" ";" lines "${CPACK_DEBIAN_${upper}_DESCRIPTION}")
  foreach(line IN LISTS lines)
    string(LENGTH "${line}" length)
    if(length GREATER 79)  # 80 with the space that Debian's form puts before it
      message(FATAL_ERROR "The description of package ${component} has a line too long: ${line}")
    endif()
  endforeach()
endforeach()
install(FILES ${CMAKE_CURRENT_LIST_DIR}/lintian-overrides
  DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides RENAME aitorixcamera COMPONENT plugin)
include(CPack)
