# Run by cpack on each package's files: what Debian asks for beyond what is installed elsewhere.

# compress(<file>): in the one way that gives the same bytes each time.
function(compress file)
  execute_process(COMMAND gzip -9nf ${file} COMMAND_ERROR_IS_FATAL ANY)
endfunction()

string(TIMESTAMP date "%a, %d %b %Y %H:%M:%S +0000" UTC)
foreach(component ${CPACK_COMPONENTS_ALL})
  string(TOUPPER ${component} key)
  set(share ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/${component}${CPACK_PACKAGING_INSTALL_PREFIX}/share)
  set(documents ${share}/doc/${CPACK_DEBIAN_${key}_PACKAGE_NAME})
  file(COPY ${CMAKE_CURRENT_LIST_DIR}/copyright DESTINATION ${documents})
  file(WRITE ${documents}/changelog
"qvcore (${CPACK_PACKAGE_VERSION}) bookworm; urgency=medium

  * Packaged as released.

 -- ${CPACK_PACKAGE_CONTACT}  ${date}
")
  compress(${documents}/changelog)
  file(GLOB pages ${share}/man/man*/*.[1-8])
  foreach(page ${pages})
    compress(${page})
  endforeach()
endforeach()
