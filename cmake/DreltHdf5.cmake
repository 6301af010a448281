# The C library of HDF5, as the target drelt_hdf5. On Debian it stands in folders of its own.
find_path(DRELT_HDF5_INCLUDE hdf5.h PATH_SUFFIXES hdf5/serial)
find_library(DRELT_HDF5_LIBRARY NAMES hdf5_serial hdf5 PATH_SUFFIXES hdf5/serial)
if(NOT DRELT_HDF5_INCLUDE OR NOT DRELT_HDF5_LIBRARY)
  message(FATAL_ERROR "HDF5, which state files need, was not found: install libhdf5-dev (or the "
    "serial C library of HDF5, 1.10 or newer), or name it with -DDRELT_HDF5_INCLUDE=folder of hdf5.h "
    "and -DDRELT_HDF5_LIBRARY=library file")
endif()
add_library(drelt_hdf5 INTERFACE)
target_include_directories(drelt_hdf5 SYSTEM INTERFACE ${DRELT_HDF5_INCLUDE})
target_link_libraries(drelt_hdf5 INTERFACE ${DRELT_HDF5_LIBRARY})
