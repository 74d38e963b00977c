# Sourced by the scripts that run Python: where the project's packages lie, and how tests are run.
# shellcheck shell=bash
export PYTHONPATH=$PWD/tools PYTHONDONTWRITEBYTECODE=1

# python_tests WORDS...: pytest over the words, six tests at a time: they wait for most of their time.
# Tests of one group share what is dear to make, and run one after the other.
python_tests() {
  /usr/bin/python3 -m pytest -q -n 6 --dist loadgroup "$@"
}
