# find_package(qxnego [COMPONENTS ...]): the targets qxnego::qxgss, the framework, and qxnego::qxgss-session; where they
# were built, qxnego::qxgss-static, qxnego::qxgss-session-static and qxnego::gssp2qxnego-static. The components are the
# names behind "qxnego::".
include("${CMAKE_CURRENT_LIST_DIR}/qxnegoTargets.cmake")
foreach(component IN LISTS qxnego_FIND_COMPONENTS)
  if(TARGET qxnego::${component})
    set(qxnego_${component}_FOUND TRUE)
  elseif(qxnego_FIND_REQUIRED_${component})
    set(qxnego_FOUND FALSE)
    set(qxnego_NOT_FOUND_MESSAGE "QXNEGO has no component ${component} here.")
  endif()
endforeach()
