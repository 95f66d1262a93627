# Unit scanning, avcC and the real-stream tests.
qrv_add_test(test_h264_scanning
  ${CMAKE_CURRENT_LIST_DIR}/test_scanning.cpp
  ${CMAKE_CURRENT_LIST_DIR}/test_real_streams.cpp)
qrv_add_test(test_h264_rooms ${CMAKE_CURRENT_LIST_DIR}/test_rooms.cpp)
