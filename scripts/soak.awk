# What became of the jobs of a soak, from four files in this order: the times of the outages (from, until), the
# deployments that were submitted (id, kind, time, least and greatest number of details), the service's log, and
# the road. Times are texts as in the log and compare as such. Prints a table; the status is 0 when every
# deployment that the service was given made exactly one report, that one arrived in the cloud whole, every
# order got exactly one status, and every request still open is one whose reply an outage swallowed.

function in_outage(time,    i) {
  for (i = 1; i <= outages; i++) if (time >= from[i] && time <= until[i]) return 1
  return 0
}

function wrong(what) {
  print "    " what
  faults++
}

# The text behind `before` in this line, up to the next blank, comma or quotation mark.
function word_after(before,    rest) {
  rest = substr($0, index($0, before) + length(before))
  sub(/[ ,"].*/, "", rest)
  return rest
}

FNR == 1 { file++ }

file == 1 { outages++; from[outages] = $1; until[outages] = $2; next }

file == 2 { order[++deployments] = $1; kind[$1] = $2; at[$1] = $3; least[$1] = $4; most[$1] = $5; next }

file == 3 {
  if (report_at != "") {
    # Members are written in alphabetical order, so the first one tells the deployment.
    if (index($0, "\"deployId\" : \"")) {
      id = word_after("\"deployId\" : \"")
      made[id]++
      made_at[id] = report_at
    } else {
      wrong("a report without a deployment at " report_at)
    }
    report_at = ""
  }
  if (index($0, "handle1Job deployId =")) started[word_after("handle1Job deployId =")]++
  else if (index($0, "handleJob begin ackCode=")) taken[word_after("ackId = ")] = $1
  else if (index($0, "resourcesReply payload = {")) report_at = $1
  else if (index($0, "is given up without a report")) wrong($0)
  else if (index($0, "index 1 handleHeartbeatResp")) pairs++
  else if (index($0, "dispatchMasterResponse id ")) listings++
  else if (index($0, "idReqMap id = ")) open[word_after("idReqMap id = "), listings] = 1
  next
}

/ gateway-scheduler  heartbeat$/ { heartbeats++ }
/ gateway-scheduler  report / {
  id = word_after("  report ")
  messages[id]++
  match($0, /[0-9]+ details/)
  details[id] += substr($0, RSTART, RLENGTH - 8)
}
/ gateway-scheduler  status / { statuses[word_after(" of ")]++ }

# What is wrong with the reports of one deployment in the cloud; "" for nothing.
function report_fault(id,    expected) {
  expected = details[id] > 200 ? 2 : 1
  if (messages[id] + 0 != expected) return messages[id] + 0 " messages"
  if (details[id] < least[id] || details[id] > most[id]) return details[id] " details"
  return ""
}

function judge(id,    k, fault) {
  k = kind[id]
  submitted[k]++
  if (!(id in started)) {
    # Whoever brings the order to the service dies with it.
    if (in_outage(at[id])) lost_order[k]++
    else wrong(k " " id " of " at[id] " never reached the service")
    return
  }
  if (started[id] != 1) wrong(k " " id " was started " started[id] " times")
  if (made[id] + 0 != 1) { wrong(k " " id " made " made[id] + 0 " reports"); return }
  fault = report_fault(id)
  if (fault == "") complete[k]++
  else if (in_outage(made_at[id])) lost_report[k]++
  else wrong(k " " id ", reported at " made_at[id] ", arrived in " fault)
}

# A request id is the time in microseconds.
function time_of(id,    command, text) {
  command = "date -u -d @" substr(id, 1, length(id) - 6) " +%Y-%m-%dT%H:%M:%S"
  command | getline text
  close(command)
  return text "." substr(id, length(id) - 5, 3) "Z"
}

function judge_requests(    key, part, id) {
  for (key in open) {
    split(key, part, SUBSEP)
    if (part[2] != 1 || !((part[1], 2) in open)) continue
    id = part[1]
    left++
    if (!in_outage(time_of(id))) wrong("the request of " time_of(id) " is still open")
  }
}

function row(k) {
  printf "  %-14s %10d %10d %12d %13d\n", k, submitted[k], complete[k], lost_order[k], lost_report[k]
  submitted["all"] += submitted[k]; complete["all"] += complete[k]
  lost_order["all"] += lost_order[k]; lost_report["all"] += lost_report[k]
}

END {
  for (i = 1; i <= deployments; i++) judge(order[i])
  for (id in taken) {
    orders++
    if (statuses[id] + 0 != 1 && !in_outage(taken[id])) wrong("the order " id " has " statuses[id] + 0 " statuses")
  }
  judge_requests()
  printf "  %-14s %10s %10s %12s %13s\n", "deployment", "submitted", "reported", "order lost", "report lost"
  for (k in submitted) names[++n] = k
  for (i = 1; i <= n; i++) row(names[i])
  row("all")
  printf "  %d orders carried out, %d of them not alone in their heartbeat's reply; %d heartbeats arrived\n", \
    orders, pairs, heartbeats
  printf "  %d outages of bridge or broker, %d requests whose reply they swallowed stay open\n", outages, left
  if (!complete["all"] || !pairs || !heartbeats) wrong("nothing was tested")
  exit faults > 0
}
