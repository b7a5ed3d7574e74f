# The store file loader: any bytes as a store file, opened read-only, loaded and every record read.
fuzz_target(storefile storefile_load.cc zelkor_vhd)
