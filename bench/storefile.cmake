# Store file: full save, save after a few changes, open; each beside a plain-file reference.
bench_area(bench_storefile storefile_bench.cc zelkor_vhd)
