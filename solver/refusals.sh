#!/bin/sh
# qkm-solve refuses a malformed mesh with the line and what it expected, writes nothing, and
# exits 2; a bad command line exits 1 with the option named; an unconverged solve warns.
solve="$1"; dir="$2"
rm -rf "$dir"; mkdir -p "$dir/out"
printf '$MeshFormat\n4.1 0 8\n$EndMeshFormat\n$Nodes\n1 2 1 2\n3 1 0 two\n' > "$dir/bad.msh"
"$solve" --mesh "$dir/bad.msh" --out "$dir/out" --quiet > "$dir/stdout" 2> "$dir/stderr"
rc=$?
[ "$rc" -eq 2 ] || { echo "malformed mesh: exit $rc, expected 2"; exit 1; }
grep -q "bad.msh:6" "$dir/stderr" || { echo "no line number:"; cat "$dir/stderr"; exit 1; }
[ -z "$(ls "$dir/out")" ] || { echo "files written for a malformed mesh"; exit 1; }
"$solve" --cells 4 x 4 > /dev/null 2> "$dir/stderr"
rc=$?
[ "$rc" -eq 1 ] || { echo "bad option: exit $rc, expected 1"; exit 1; }
grep -q -- "--cells" "$dir/stderr" || { echo "option not named:"; cat "$dir/stderr"; exit 1; }
"$solve" --help | grep -q -- "--mesh FILE" || { echo "help lacks --mesh"; exit 1; }
# A solve stopped by its iteration limit: exit 3, the catalog warning and the phase traces in
# the listing file of ZMR_QST_OUT.
mkdir -p "$dir/listing"
ZMR_QST_OUT="$dir/listing" "$solve" --cells 6 2 2 --no-direct --sensors 0 --max-iter 3 \
  --out "$dir/out" --quiet > "$dir/stdout" 2>&1
rc=$?
[ "$rc" -eq 3 ] || { echo "unconverged solve: exit $rc, expected 3"; exit 1; }
grep -q "NOT converged" "$dir/stdout" || { echo "no report of the unconverged case"; exit 1; }
log=$(ls "$dir"/listing/*.txt 2>/dev/null | head -1)
[ -n "$log" ] || { echo "no listing file"; exit 1; }
grep -q "did not converge" "$log" || { echo "no warning in the listing"; cat "$log"; exit 1; }
grep -q "phase block CG ends" "$log" || { echo "no phase trace in the listing"; exit 1; }
echo "refusals ok"
