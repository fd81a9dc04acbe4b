# Makes one table of Google Benchmark's lines (its CSV can't hold counters that only some have): a line a stage and size, with the rates of its forms in millions of
# items a second, and ratios. Names are STAGEFORM/size:N/..., FORM one of Plain, Fast and those of other libraries.
function option(name, key,    at, rest) {
  at = index(name, "/" key ":")
  if (!at) return ""
  rest = substr(name, at + length(key) + 2)
  sub("/.*", "", rest)
  return rest
}
function rate(value) { return value == "" ? "-" : sprintf("%.3g", value / 1e6) }
function ratio(a, b) { return a == "" || b == "" ? "-" : sprintf("%.2f", a / b) }
function number(text,    unit) {
  sub("/s$", "", text)
  unit = substr(text, length(text))
  return text * (unit == "k" ? 1e3 : unit == "M" ? 1e6 : unit == "G" ? 1e9 : unit == "T" ? 1e12 : 1)
}
/items_per_second=/ {
  name = $1
  items = ""
  for (i = 2; i <= NF; ++i) if (sub("^items_per_second=", "", $i)) items = number($i)
  stage = name
  sub("/.*", "", stage)
  size = name
  sub("^[^/]*/", "", size)
  sub("/.*", "", size)
  form = "fast"
  if (sub("PlainPopcnt$", "", stage)) next
  if (sub("Plain$", "", stage)) form = "plain"
  else if (sub("(BesideOpenCv|OpenCv|Orb)$", "", stage)) form = "library"
  else sub("Fast$", "", stage)
  if (stage ~ /OfEvery/) next
  if (option(name, "seeds") > 1) next
  key = stage SUBSEP size
  if (!(key in seen)) {
    seen[key] = 1
    keys[++count] = key
  }
  if (option(name, "threads") > 1) form = "two"
  # Instruction sets come in ascending order: the widest one stays.
  rates[key, form] = items
}
END {
  # The search is held against the plain form of its arithmetic.
  printf "%-22s %-14s %10s %10s %8s %10s %8s %10s %8s\n", "stage", "size", "plain", "fast", "ratio", "2 threads", \
    "ratio", "library", "ratio"
  for (i = 1; i <= count; ++i) {
    key = keys[i]
    split(key, part, SUBSEP)
    plain = rates[key, "plain"]
    if (part[1] == "SearchOfDefaultPreset") plain = rates["Score" SUBSEP part[2], "plain"]
    fast = rates[key, "fast"]
    printf "%-22s %-14s %10s %10s %8s %10s %8s %10s %8s\n", part[1], part[2], rate(plain), rate(fast), \
      ratio(fast, plain), rate(rates[key, "two"]), ratio(rates[key, "two"], fast), rate(rates[key, "library"]), \
      ratio(fast, rates[key, "library"])
  }
}
