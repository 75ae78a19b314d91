# Thin targets over the presets of CMakePresets.json; build trees are under build/.
PREFIX ?= /usr/local
TEXTS ?= examples/texts

.PHONY: all run test check bench install format docs clean

all:
	@scripts/bootstrap run
	cmake --preset release
	cmake --build --preset release

# The example host on the folder of texts that comes with it; TEXTS="a.txt b.txt" names others.
run:
	@scripts/bootstrap run
	cmake --preset release
	cmake --build --preset release --target host
	build/release/examples/host/host $(TEXTS)
	build/release/examples/host/host --settings

test:
	@scripts/bootstrap test
	cmake --preset release
	cmake --build --preset release
	ctest --preset release

# All of it takes a while; scripts/check NAME... runs single steps.
check:
	@scripts/bootstrap check
	scripts/check

bench:
	@scripts/bootstrap bench
	cmake --preset bench
	cmake --build --preset bench
	build/release/bench/qvcore6_bench --benchmark_filter=.
	build/release/bench/qvcore6_inside_bench --benchmark_filter=.

# PREFIX and DESTDIR as usual. A copy for the whole system gets the store that all users share.
install: all
	cmake --install build/release --prefix "$(PREFIX)"
	@case "$(PREFIX)" in /usr|/usr/local) \
	    install -d -m 755 "$(DESTDIR)/var/lib/qvcore6"; \
	    if [ -z "$(DESTDIR)" ]; then ldconfig; fi ;; esac

format:
	@scripts/bootstrap format
	scripts/format

docs:
	@scripts/bootstrap docs
	scripts/check docs

clean:
	rm -rf build
