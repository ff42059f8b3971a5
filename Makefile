# The front door. Each target does its own set-up; what is behind it stands in scripts/.

MAKEFLAGS += --no-print-directory

.PHONY: demo check shell package bench fuzz coverage format clean

demo:  ## build a release, run the sample commands and the sample host
	scripts/demo.sh

check:  ## build and run all tests
	scripts/check.sh check

shell:  ## open the prompt on the database in data/
	scripts/shell.sh

package:  ## make the Debian packages and those for Python and Node.js, in build/package
	scripts/package.sh

bench:  ## compare with SQLite and DuckDB, and the packages with SQLite's; QUICK=1 takes about a minute
	QUICK=$(QUICK) scripts/bench.sh
	QUICK=$(QUICK) scripts/bench_python.sh
	QUICK=$(QUICK) scripts/bench_node.sh

fuzz:  ## run every fuzzer for SECONDS=60 each
	SECONDS_EACH=$(or $(SECONDS),60) scripts/fuzz.sh

coverage:  ## line and branch coverage of src/ as HTML, in build/coverage/report
	scripts/coverage.sh

format:  ## rewrite the C and C++ sources in the house style
	scripts/format.sh

clean:  ## remove every build; the database in data/ stays
	rm -rf build
