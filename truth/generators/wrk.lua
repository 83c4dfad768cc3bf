-- Pauses between the requests of a connection, and says at the end how many took longer than 10 ms.
local pause = 0

function init(arguments)
    pause = tonumber(arguments[1])
    if pause == 0 then delay = nil end
end

function delay() return pause end

function done(summary, latency)
    local on_time = 0
    for tenth = 1, 1000 do
        if latency:percentile(math.min(tenth / 10, 99.999)) <= 10000 then on_time = tenth end
    end
    io.write(string.format("asked=0 sent=%d late=%d\n", summary.requests, summary.requests * (1 - on_time / 1000)))
end
