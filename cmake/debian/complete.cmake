# Run by CPack once the components are installed: adds to each package what Debian wants in it, and
# compresses what Debian wants compressed.
foreach(component IN LISTS CPACK_COMPONENTS_ALL)
  string(TOUPPER ${component} key)
  set(share "${CPACK_TEMPORARY_DIRECTORY}/${component}/usr/share")
  set(folder "${share}/doc/${CPACK_DEBIAN_${key}_PACKAGE_NAME}")
  file(COPY "${CPACK_QEL_DEBIAN_FILES}/changelog" "${CPACK_QEL_DEBIAN_FILES}/changelog.Debian"
    "${CPACK_QEL_DEBIAN_FILES}/copyright" DESTINATION "${folder}")
  file(GLOB pages "${share}/man/man1/*.1")
  execute_process(COMMAND gzip -9n "${folder}/changelog" "${folder}/changelog.Debian" ${pages}
    COMMAND_ERROR_IS_FATAL ANY)
endforeach()
