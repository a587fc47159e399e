#!/usr/bin/env bash
# The DirectX reader's own check (dxreader-selftest.sh COMMAND...): it must
# read a file that meets each of wine's gaps and limits, and refuse names that
# are no X identifiers and a skin whose count disagrees with its entries.
set -euo pipefail
reader=("$@")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
template="$(dirname "$0")/../data/Tarnvale.X"
# The default template's declarations, without its tokens and its data.
declarations() { sed -n '1,/^GuidToName {/p' "$template" | sed '$d; /#/d'; }
matrix=$'FrameTransformMatrix {\n1.0, 0.0, 0.0, 0.0, 0.0, 1.0, 0.0, 0.0, 0.0, 0.0, 1.0, 0.0, 0.0, 0.0, 0.0, 1.0;;\n}'
frames() { # count, name prefix: sibling frames
  for ((i = 0; i < $1; i++)); do printf 'Frame %s%d {\n%s\n}\n' "$2" "$i" "$matrix"; done
}
skin() { # vertices, first bone name
  printf 'Mesh skinned {\n3;\n0.0; 0.0; 0.0;,\n1.0; 0.0; 0.0;,\n0.0; 1.0; 0.0;;\n1;\n 3;0,1,2;;\nMeshSkinWeights {\n %d ;\n' "$1"
  for ((i = 0; i < $1; i++)); do printf '  2 ;\n    "%s_%04d",  0.5;\n    "antenna.001",  0.5;\n' "$2" "$i"; done
  printf '}\n}\n'
}
alpha() { # threshold
  printf 'Material m {\n1.0;1.0;1.0;1.0;;\n0.0;\n1.0;1.0;1.0;;\n0.0;0.0;0.0;;\nFS10Material {\n'
  printf '0.0;0.0;0.0;0.0;;\n0.9;0.9;0.9;;\n0.0;\n1.0;1.0;\n0.3;\n 0 ; 0 ; 0 ; 0 ; 0 ; 0 ; 0 ; 0 ;0.0;\n202.0;\n"One"; "Zero";\n'
  printf 'AlphaData  {\n 0 ;  // ZTest Alpha\n%s;  // Alpha test threshold\n"Never";\n 0 ;\n255.0;\n}\n}\n}\n' "$1"
}
{
  declarations
  printf 'Frame frm-wide {\n%s\nPartData {\n 4 ;\n 97 , 98 , 99 , 0;\n}\n' "$matrix"
  frames 250 frm-child-
  skin 3000 bone
  printf 'Frame frm-deep {\n%s\n' "$matrix"
  frames 1100 frm-inner-
  printf '}\nMesh thresholds {\n1;\n0.0; 0.0; 0.0;;\n1;\n 3;0,0,0;;\nMeshMaterialList {\n4;\n1;\n0;;\n'
  for t in ' .1 ' ' 1 ' ' 0 ' '-.5 '; do alpha "$t"; done
  printf '}\n}\n}\n'
} >"$work/limits.x"
{ declarations; printf 'Frame frm-antenna.001 {\n%s\n}\n' "$matrix"; } >"$work/dotted.x"
{ declarations; printf 'Frame frm-a {\n'; skin 3000 b | sed 's/^ 3000 ;/ 3001 ;/'; printf '}\n'; } >"$work/count.x"

"${reader[@]}" "$work/limits.x" || { echo "dxreader refused a file within the format"; exit 1; }
for bad in dotted count; do
  if "${reader[@]}" "$work/$bad.x"; then echo "dxreader read $bad.x, which it must refuse"; exit 1; fi
done
echo "dxreader: self-test passed"
